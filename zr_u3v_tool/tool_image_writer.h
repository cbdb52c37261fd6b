#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "tool_acquisition.h"
#include "tool_image_file.h"

// Writes images on a thread of its own, so that a slow disk or a compression does not hold up the
// buffers that the camera fills. Images wait in memory up to a limit; then Put() waits as well.
class ImageWriter
{
public:
    ImageWriter(const std::string& pattern, size_t count, const ImageOptions& options);
    // Images that are still waiting are dropped: after Finish() there are none.
    ~ImageWriter();
    ImageWriter(const ImageWriter&) = delete;
    ImageWriter& operator=(const ImageWriter&) = delete;

    // Copies the image. Throws what went wrong with an earlier one.
    void Put(const Image& image);
    // Waits until everything is written, and throws what went wrong.
    void Finish();

private:
    struct Job
    {
        std::filesystem::path path;
        std::vector<uint8_t> bytes;
        RawImage image; // its bytes are those above
    };

    void _run();
    bool _writeNext(std::unique_lock<std::mutex>& lock);

    const std::string m_pattern;
    const size_t m_count;
    const ImageOptions m_options;
    size_t m_number = 0;

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<Job> m_jobs; // the front one is being written
    size_t m_waitingBytes = 0;
    bool m_isEnding = false;
    std::exception_ptr m_failure;

    std::thread m_thread; // last: it uses all of the above
};
