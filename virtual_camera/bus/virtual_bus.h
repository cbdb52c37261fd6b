/*
 * Control of the virtual USB bus: what a test says to the libusb-1.0 stand-in behind the host's
 * back.
 *
 * The functions are exported by the same shared library that offers the libusb-1.0 ABI
 * (libusb-1.0.so.0 of the target zr_virtual_usb): a test links with it, the code under test finds
 * it by its ordinary soname. All functions may be called from any thread at any time, except that
 * vusb_reset() wants no libusb call under way. Nothing here appears in the journal.
 *
 * Without any vusb_ call the first libusb_init() reads the environment variable ZR_VIRTUAL_CAMERAS
 * (default: one camera). After the first vusb_ call that changes the bus the environment is
 * ignored.
 *
 * Options are "key=value,key=value" (README.md of virtual_camera lists the keys), faults are
 * "name[%[r|w]address][@first][*count][:value]" joined by ',' or '+'.
 */
#ifndef VIRTUAL_BUS_H
#define VIRTUAL_BUS_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VUSB_API __attribute__((visibility("default")))
#else
#define VUSB_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Counters of one camera since it was plugged in (a replug keeps them). */
typedef struct vusb_camera_stats
{
    uint64_t images_started;       /* leaders handed to the host (or skipped by a fault) */
    uint64_t images_sent;          /* trailers handed to the host */
    uint64_t images_dropped;       /* frames that found no room (drop=1) */
    uint64_t stream_bytes;         /* bytes moved over the stream endpoint */
    uint64_t control_transactions; /* commands answered or ignored */
    uint64_t overflows;            /* packets that did not fit the host's request */
    uint64_t faults_played;        /* scripted faults that have happened */
    uint64_t protocol_errors; /* commands and register accesses a standard host does not make */
} vusb_camera_stats;

/* Objects of the host that are alive; all zero after a clean libusb_exit(). */
typedef struct vusb_live_objects
{
    uint64_t contexts;
    uint64_t handles;
    uint64_t transfers;
    uint64_t transfers_in_flight;
    uint64_t device_references; /* references the host holds (lists and libusb_ref_device, open
                                   handles) */
    uint64_t config_descriptors;
    uint64_t dev_mem_blocks;
} vusb_live_objects;

/* One call of the libusb-1.0 ABI. */
typedef struct vusb_call
{
    char function[48];     /* "libusb_open" */
    uint64_t arguments[4]; /* the first ones after the handle or context; buffers as addresses */
    uint64_t object;       /* the first argument: context, device, handle or transfer */
    int64_t result;        /* what the call returned; 0 for void */
    uint64_t thread;       /* the same number for calls of the same thread */
    uint64_t sequence;     /* counts all calls since the last reset */
    int scripted;          /* 1 when the result comes from vusb_fail_call() */
} vusb_call;

/* Why the last vusb_ call of this thread failed; never NULL. */
VUSB_API const char* vusb_last_error(void);

/* Unplugs everything, forgets scripts, journal and counters; leaves an empty bus. */
VUSB_API void vusb_reset(void);

/* Plugs in a camera (or, with count=n, n of them). Returns the id of the first, or -1. */
VUSB_API int vusb_add_camera(const char* options);
/* Plugs in some other device: kind=mouse | hub | disk | iad | broken. Returns its id, or -1. */
VUSB_API int vusb_add_device(const char* options);
/* Both return 0, or -1 when the id is unknown or already in that state. A replugged device is a new
 * one for the host (new address); pending transfers of an unplugged one complete with "no device".
 */
VUSB_API int vusb_unplug(int id);
VUSB_API int vusb_replug(int id);
VUSB_API int vusb_is_plugged(int id); /* 1, 0, or -1 for an unknown id */

/* Replaces the fault list of a camera (NULL or "": none), counting from now on. 0 or -1. */
VUSB_API int vusb_set_faults(int id, const char* faults);
/* Changes options of a camera; those fixed at plug time (strings, descriptors) count from its next
 * plug on, the frame rate ("fps") at once. 0 or -1. */
VUSB_API int vusb_set_options(int id, const char* options);
/* Suspends a camera: everything under way, and whatever comes, fails with an error, until it is
 * resumed. 0 or -1. */
VUSB_API int vusb_suspend(int id, int suspended);
VUSB_API int vusb_set_frame_rate(int id, double frames_per_second);
/* Register access behind the protocol: no access checks, but the effects of a write. 0 or -1. */
VUSB_API int vusb_peek(int id, uint64_t address, void* data, size_t size);
VUSB_API int vusb_poke(int id, uint64_t address, const void* data, size_t size);
/* Sends an event with these data. 0, or -1 also while the host has not switched events on. */
VUSB_API int vusb_send_event(int id, uint16_t event, const void* data, size_t size);
VUSB_API int vusb_camera_get_stats(int id, vusb_camera_stats* stats);
/* Times a protocol error of this kind has happened ("locked-register", ...; NULL: all). */
VUSB_API uint64_t vusb_camera_errors(int id, const char* kind);

/* What the camera sends. Payload size in bytes at the present geometry; 0 for an unknown id. */
VUSB_API size_t vusb_payload_size(int id);
/* Fills the reference image of a frame (its block id) at the present geometry. 0 or -1. */
VUSB_API int vusb_expected_image(int id, uint64_t frame, void* image, size_t size);
/* The byte at an offset of a frame, or -1. */
VUSB_API int vusb_expected_byte(int id, uint64_t frame, size_t offset);
/* Compares; returns -1 when equal, -2 for an unknown id, else the offset of the first difference.
 */
VUSB_API int64_t vusb_compare_image(int id, uint64_t frame, const void* image, size_t size);

/* The description file as the camera serves it (plain or zipped); returns its size, copies at most
 * that. */
VUSB_API size_t vusb_description_file(int id, void* data, size_t size);

/* What the kernel lets transfers under way and device memory take together (0, as after a reset:
 * any amount); a submit beyond it answers LIBUSB_ERROR_NO_MEM, device memory NULL. Without any
 * vusb_ call the environment variable ZR_VIRTUAL_USBFS_MB sets it, in MiB. */
VUSB_API void vusb_set_usbfs_limit(uint64_t bytes);
VUSB_API uint64_t vusb_usbfs_used(void);

/* Writes what the kernel shows of the bus below /sys, as far as hosts read it, into a folder that
 * stands for /sys: bus/usb/devices/2-1 with product, manufacturer, serial, ..., its interfaces with
 * their driver, and module/usbcore/parameters/usbfs_memory_mb. What an earlier call has written
 * there goes. 0 or -1. */
VUSB_API int vusb_write_sysfs(const char* folder);

/* From now on lets "skip" calls of the function pass, then answers "count" calls (0: all) with
 * "result" without doing anything. A pointer-valued function (libusb_alloc_transfer) answers NULL.
 * Scripts of one function are worked off in the order they were given. The functions that libusb
 * calls on its own behalf (submission within libusb_bulk_transfer) do not count. 0, or -1 for an
 * unknown function. */
VUSB_API int vusb_fail_call(const char* function, unsigned skip, unsigned count, int result);
VUSB_API void vusb_clear_scripts(void);

/* The journal keeps the latest calls (65536 unless set otherwise); the counts are exact. */
VUSB_API size_t vusb_journal_size(void);
VUSB_API int vusb_journal_get(size_t index, vusb_call* call); /* 0 is the oldest kept; 0 or -1 */
VUSB_API void vusb_journal_clear(void);
VUSB_API void vusb_journal_limit(size_t entries);
VUSB_API uint64_t vusb_call_count(const char* function); /* since reset or vusb_journal_clear() */

/* Violations of the libusb rules by kind; NULL: all together. Kinds:
 * "null-handle", "stale-handle" (use after close, unknown pointer), "stale-device",
 * "stale-transfer", "stale-context", "close-in-flight", "free-in-flight", "double-free",
 * "submit-in-flight", "bad-buffer", "no-context", "exit-with-handles", "exit-with-transfers",
 * "unref-below-zero", "not-claimed", "sync-in-callback", "foreign-pointer", "unlock-not-locked". */
VUSB_API uint64_t vusb_violations(const char* kind);
VUSB_API size_t vusb_violation_text(char* text,
                                    size_t size); /* "kind count" lines; returns the length */
VUSB_API void vusb_get_live_objects(vusb_live_objects* live);

#ifdef __cplusplus
}

#include <stdexcept>
#include <string>
#include <vector>

/* The thin C++ face of the functions above. */
namespace vusb {

inline int Checked(int result)
{
    if (result < 0) {
        throw std::runtime_error(vusb_last_error());
    }
    return result;
}

/* A camera on the bus; unplugged and forgotten by vusb_reset(), not by the destructor. */
class Camera
{
public:
    explicit Camera(const std::string& options = std::string())
        : m_id(Checked(vusb_add_camera(options.c_str())))
    {
    }

    int Id() const { return m_id; }
    void Unplug() const { Checked(vusb_unplug(m_id)); }
    void Replug() const { Checked(vusb_replug(m_id)); }
    bool IsPlugged() const { return vusb_is_plugged(m_id) == 1; }
    void SetFaults(const std::string& faults) const
    {
        Checked(vusb_set_faults(m_id, faults.c_str()));
    }
    void SetOptions(const std::string& options) const
    {
        Checked(vusb_set_options(m_id, options.c_str()));
    }
    bool SendEvent(std::uint16_t event, const std::vector<unsigned char>& data = {}) const
    {
        return vusb_send_event(m_id, event, data.data(), data.size()) == 0;
    }
    void Suspend(bool suspended = true) const { Checked(vusb_suspend(m_id, suspended ? 1 : 0)); }
    void SetFrameRate(double rate) const { Checked(vusb_set_frame_rate(m_id, rate)); }
    std::size_t PayloadSize() const { return vusb_payload_size(m_id); }

    vusb_camera_stats Stats() const
    {
        vusb_camera_stats stats{};
        Checked(vusb_camera_get_stats(m_id, &stats));
        return stats;
    }

    template <typename T>
    T Peek(std::uint64_t address) const
    {
        T value{};
        Checked(vusb_peek(m_id, address, &value, sizeof value));
        return value;
    }

    template <typename T>
    void Poke(std::uint64_t address, T value) const
    {
        Checked(vusb_poke(m_id, address, &value, sizeof value));
    }

    std::vector<unsigned char> Expected(std::uint64_t frame) const
    {
        std::vector<unsigned char> image(PayloadSize());
        Checked(vusb_expected_image(m_id, frame, image.data(), image.size()));
        return image;
    }

    std::vector<unsigned char> DescriptionFile() const
    {
        std::vector<unsigned char> file(vusb_description_file(m_id, nullptr, 0));
        vusb_description_file(m_id, file.data(), file.size());
        return file;
    }

private:
    int m_id;
};

/* All journal entries of one function (empty name: all), oldest first. */
inline std::vector<vusb_call> Calls(const std::string& function = std::string())
{
    std::vector<vusb_call> calls;
    vusb_call call{};
    for (std::size_t i = 0; vusb_journal_get(i, &call) == 0; ++i) {
        if (function.empty() || function == call.function) {
            calls.push_back(call);
        }
    }
    return calls;
}

/* "kind count" lines of every violation; empty when the host has kept all the rules. */
inline std::string Violations()
{
    std::string text(vusb_violation_text(nullptr, 0), '\0');
    vusb_violation_text(text.data(), text.size() + 1);
    return text;
}

} // namespace vusb
#endif
#endif
