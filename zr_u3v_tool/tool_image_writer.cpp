#include "tool_image_writer.h"

namespace {
// 256 MiB: a camera that is faster than the disk waits for it instead of filling the memory. One
// image is taken whatever its size.
constexpr size_t kMaximumWaiting = 256U << 20U;
} // namespace

ImageWriter::ImageWriter(const std::string& pattern, size_t count, const ImageOptions& options)
    : m_pattern(pattern), m_count(count), m_options(options), m_thread([this] { _run(); })
{
}

ImageWriter::~ImageWriter()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void ImageWriter::Put(const Image& image)
{
    // The acquisition's buffer goes back as soon as this returns, so its bytes are copied.
    Job job;
    job.path = ImagePath(m_pattern, {++m_number, m_count, image.frameId, image.timestamp});
    job.bytes.assign(image.bytes.begin(), image.bytes.end());
    job.image = RawOf(image);

    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] {
        return m_failure != nullptr || m_jobs.empty() ||
               m_waitingBytes + job.bytes.size() <= kMaximumWaiting;
    });
    if (m_failure != nullptr) {
        std::rethrow_exception(m_failure);
    }
    m_waitingBytes += job.bytes.size();
    m_jobs.push_back(std::move(job));
    // The job has moved: its image refers to the bytes where they are now.
    m_jobs.back().image.bytes = m_jobs.back().bytes;
    m_changed.notify_all();
}

// A failure that no later Put would have met ends the command here.
void ImageWriter::Finish()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_jobs.empty() || m_failure != nullptr; });
    if (m_failure != nullptr) {
        std::rethrow_exception(m_failure);
    }
}

// The writing thread. What still waits when the writer is destroyed is dropped: that is after
// Finish, or after a failure.
void ImageWriter::_run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_jobs.empty(); });
        if (m_isEnding || !_writeNext(lock)) {
            return;
        }
        m_changed.notify_all();
    }
}

// False when the image could not be written; nothing is written after that.
bool ImageWriter::_writeNext(std::unique_lock<std::mutex>& lock)
{
    // Elements of a deque stay where they are while others are added at its end.
    const Job& job = m_jobs.front();
    std::exception_ptr failure;
    lock.unlock();
    try {
        WriteImage(job.path, job.image, m_options);
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    m_failure = failure;
    m_waitingBytes -= job.bytes.size();
    m_jobs.pop_front();
    m_changed.notify_all();
    return failure == nullptr;
}
