// The control functions of the bus.

#include "virtual_bus.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "sysfs_writer.h"
#include "transfer_engine.h"

using namespace vbus;

namespace {

thread_local std::string lastError;
const char ownAddress = 0; // an address within this library

int Fail(std::string error)
{
    lastError = std::move(error);
    return -1;
}

int Answer(bool done, const std::string& error)
{
    return done ? 0 : Fail(error);
}

std::string Text(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

// The camera that is plugged in under this id, to be used without the bus lock.
std::shared_ptr<vcam::UsbCamera> CameraOf(int id)
{
    const BusLock lock = Bus().Guard();
    const Slot* slot = Bus().FindSlot(id);
    return slot != nullptr && slot->present ? slot->present->camera : nullptr;
}

template <typename Body>
int WithCamera(int id, Body body)
{
    const std::shared_ptr<vcam::UsbCamera> camera = CameraOf(id);
    return camera ? body(*camera) : Fail("no camera is plugged in under this id");
}

// Writes payload bytes of the reference image: of the plugged camera, at its present geometry.
int FillReference(int id, std::uint64_t frame, std::size_t offset, std::uint8_t* target,
                  std::size_t size)
{
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        const vcam::ImageGeometry geometry = camera.Geometry();
        const vcam::Pattern pattern = camera.PresentPattern();
        if (offset > geometry.Payload() || size > geometry.Payload() - offset) {
            return Fail("beyond the image");
        }
        const BusLock lock = Bus().Guard();
        Slot* slot = Bus().FindSlot(id);
        slot->reference.Configure(geometry, pattern, camera.Seed());
        slot->reference.Fill(frame, offset, target, size);
        return 0;
    });
}

// Whether this library, wherever it was loaded from, has such a function.
bool IsExported(const char* function)
{
    Dl_info self{};
    if (function == nullptr || std::strncmp(function, "libusb_", 7) != 0 ||
        dladdr(&ownAddress, &self) == 0) {
        return false;
    }
    void* library = dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    const bool found = library != nullptr && dlsym(library, function) != nullptr;
    if (library != nullptr) {
        dlclose(library);
    }
    return found;
}

} // namespace

const char* vusb_last_error(void)
{
    return lastError.c_str();
}

void vusb_reset(void)
{
    Bus().Reset();
}

int vusb_add_camera(const char* options)
{
    std::string error;
    const int id = Bus().AddCamera(Text(options), error);
    return id < 0 ? Fail(error) : id;
}

int vusb_add_device(const char* options)
{
    std::string error;
    const int id = Bus().AddDevice(Text(options), error);
    return id < 0 ? Fail(error) : id;
}

int vusb_unplug(int id)
{
    std::string error;
    const bool done = Bus().Unplug(id, error);
    return Answer(done, error);
}

int vusb_replug(int id)
{
    std::string error;
    const bool done = Bus().Replug(id, error);
    return Answer(done, error);
}

int vusb_is_plugged(int id)
{
    const BusLock lock = Bus().Guard();
    Bus().Tick();
    const Slot* slot = Bus().FindSlot(id);
    return slot == nullptr ? Fail("unknown device") : slot->present ? 1 : 0;
}

int vusb_set_faults(int id, const char* faults)
{
    const std::string list = Text(faults);
    {
        const BusLock lock = Bus().Guard();
        Slot* slot = Bus().FindSlot(id);
        const std::string error =
            slot == nullptr ? "unknown device" : slot->config.Set("faults", list);
        if (!error.empty()) {
            return Fail(error);
        }
        if (!slot->present) {
            return 0; // for the next plug
        }
    }
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        camera.SetFaults(list);
        return 0;
    });
}

int vusb_set_options(int id, const char* options)
{
    const std::string text = Text(options);
    double rate = 0;
    {
        const BusLock lock = Bus().Guard();
        Slot* slot = Bus().FindSlot(id);
        const std::string error = slot == nullptr ? "unknown device" : slot->config.Apply(text);
        if (!error.empty()) {
            return Fail(error);
        }
        rate = slot->config.fps;
    }
    vcam::OptionList list;
    vcam::SplitOptions(text, list);
    const bool hasRate = std::any_of(list.begin(), list.end(),
                                     [](const auto& option) { return option.first == "fps"; });
    const std::shared_ptr<vcam::UsbCamera> camera = CameraOf(id);
    if (hasRate && camera) {
        camera->SetFrameRate(rate);
    }
    return 0;
}

int vusb_suspend(int id, int suspended)
{
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        camera.Suspend(suspended != 0);
        return 0;
    });
}

void vusb_set_usbfs_limit(uint64_t bytes)
{
    const BusLock lock = Bus().Guard();
    Bus().SetKernelMemoryLimit(bytes);
}

uint64_t vusb_usbfs_used(void)
{
    const BusLock lock = Bus().Guard();
    return Bus().KernelMemoryUsed();
}

int vusb_write_sysfs(const char* folder)
{
    std::string error;
    const bool written = WriteSysfs(Text(folder), error);
    return Answer(written, error);
}

int vusb_set_frame_rate(int id, double frames_per_second)
{
    if (!(frames_per_second >= 0 && frames_per_second <= 100000)) {
        return Fail("no frame rate");
    }
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        camera.SetFrameRate(frames_per_second);
        return 0;
    });
}

int vusb_peek(int id, uint64_t address, void* data, size_t size)
{
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        return Answer(camera.Peek(address, static_cast<std::uint8_t*>(data), size), "no register");
    });
}

int vusb_poke(int id, uint64_t address, const void* data, size_t size)
{
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        return Answer(camera.Poke(address, static_cast<const std::uint8_t*>(data), size),
                      "no register");
    });
}

int vusb_send_event(int id, uint16_t event, const void* data, size_t size)
{
    return WithCamera(id, [&](vcam::UsbCamera& camera) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        return Answer(camera.SendEvent(event, {bytes, size}), "events are switched off");
    });
}

int vusb_camera_get_stats(int id, vusb_camera_stats* stats)
{
    const BusLock lock = Bus().Guard();
    const Slot* slot = Bus().FindSlot(id);
    if (slot == nullptr || stats == nullptr) {
        return Fail("unknown device");
    }
    const vcam::CameraStats& past = slot->past;
    const bool hasCamera = slot->present && slot->present->camera;
    const vcam::CameraStats now = hasCamera ? slot->present->camera->Stats() : vcam::CameraStats{};
    *stats = {past.stream.started + now.stream.started,
              past.stream.sent + now.stream.sent,
              past.stream.dropped + now.stream.dropped,
              past.stream.bytes + now.stream.bytes,
              past.controlTransactions + now.controlTransactions,
              past.stream.overflows + now.stream.overflows,
              past.faultsPlayed + now.faultsPlayed,
              past.protocolErrors + now.protocolErrors};
    return 0;
}

uint64_t vusb_camera_errors(int id, const char* kind)
{
    const BusLock lock = Bus().Guard();
    const Slot* slot = Bus().FindSlot(id);
    if (slot == nullptr) {
        return 0;
    }
    std::uint64_t sum = 0;
    const auto add = [&sum, kind](const vcam::ErrorCounts& errors) {
        for (const auto& [name, count] : errors) {
            sum += kind == nullptr || name == kind ? count : 0;
        }
    };
    add(slot->pastErrors);
    if (slot->present && slot->present->camera) {
        add(slot->present->camera->Errors());
    }
    return sum;
}

size_t vusb_payload_size(int id)
{
    const std::shared_ptr<vcam::UsbCamera> camera = CameraOf(id);
    return camera ? camera->Geometry().Payload() : 0;
}

int vusb_expected_image(int id, uint64_t frame, void* image, size_t size)
{
    return FillReference(id, frame, 0, static_cast<std::uint8_t*>(image), size);
}

int vusb_expected_byte(int id, uint64_t frame, size_t offset)
{
    std::uint8_t byte = 0;
    return FillReference(id, frame, offset, &byte, 1) == 0 ? byte : -1;
}

int64_t vusb_compare_image(int id, uint64_t frame, const void* image, size_t size)
{
    std::vector<std::uint8_t> expected(size);
    if (vusb_expected_image(id, frame, expected.data(), size) != 0) {
        return -2;
    }
    if (size == 0 || std::memcmp(expected.data(), image, size) == 0) {
        return -1;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(image);
    return std::mismatch(expected.begin(), expected.end(), bytes).first - expected.begin();
}

size_t vusb_description_file(int id, void* data, size_t size)
{
    const std::shared_ptr<vcam::UsbCamera> camera = CameraOf(id);
    const std::vector<std::uint8_t> file =
        camera ? camera->DescriptionFile() : std::vector<std::uint8_t>();
    if (data != nullptr) {
        std::copy_n(file.begin(), std::min(size, file.size()), static_cast<std::uint8_t*>(data));
    }
    return file.size();
}

int vusb_fail_call(const char* function, unsigned skip, unsigned count, int result)
{
    if (!IsExported(function)) {
        return Fail("unknown function \"" + Text(function) + "\"");
    }
    CallJournal::Instance().AddScript(function, skip, count, result);
    return 0;
}

void vusb_clear_scripts(void)
{
    CallJournal::Instance().ClearScripts();
}

size_t vusb_journal_size(void)
{
    return CallJournal::Instance().Size();
}

int vusb_journal_get(size_t index, vusb_call* call)
{
    return call != nullptr && CallJournal::Instance().Get(index, *call) ? 0 : -1;
}

void vusb_journal_clear(void)
{
    CallJournal::Instance().Clear();
}

void vusb_journal_limit(size_t entries)
{
    CallJournal::Instance().SetLimit(entries);
}

uint64_t vusb_call_count(const char* function)
{
    return CallJournal::Instance().Count(Text(function));
}

uint64_t vusb_violations(const char* kind)
{
    return CallJournal::Instance().Violations(kind);
}

size_t vusb_violation_text(char* text, size_t size)
{
    const std::string all = CallJournal::Instance().ViolationText();
    if (text != nullptr && size != 0) {
        const std::size_t length = std::min(size - 1, all.size());
        std::copy_n(all.begin(), length, text);
        text[length] = '\0';
    }
    return all.size();
}

void vusb_get_live_objects(vusb_live_objects* live)
{
    const BusLock lock = Bus().Guard();
    *live = Bus().Live();
}
