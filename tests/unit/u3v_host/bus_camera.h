#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "camera.h"
#include "camera_list.h"
#include "error.h"
#include "virtual_bus.h"
#include "wait.h"

namespace u3v_host {

using namespace std::chrono_literals;

inline Deadline In(std::chrono::milliseconds time)
{
    return std::chrono::steady_clock::now() + time;
}
constexpr auto kLong = 10s; // what ends a test that would hang

// Waits until it holds; false after a long time.
inline bool Eventually(const std::function<bool()>& holds)
{
    return zr_test::WaitUntil(holds);
}

// An empty virtual bus, a device tree of the test's own, and at the end no rule of libusb broken
// and nothing left.
class BusTest : public ::testing::Test
{
protected:
    BusTest();
    ~BusTest() override;

    // Made at the first call, with m_options.
    CameraList& List();
    void CloseList() { m_list.reset(); }
    // Looks at the bus and opens the only camera.
    std::unique_ptr<Camera> OpenOnly(OpenMode mode = OpenMode::ReadWrite);

    // In the device tree: the text of a device's attribute, the driver of an interface.
    void WriteAttribute(const std::string& device, const std::string& name,
                        const std::string& text) const;
    void SetDriver(const std::string& interface, const std::string& driver) const;

    CameraListOptions m_options; // times that a test can wait for

private:
    const std::filesystem::path m_root;
    std::unique_ptr<CameraList> m_list;
};

// What `action` throws; fails the test when it throws nothing.
template <class Action>
Error Failure(Action action)
{
    try {
        action();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {ErrorKind::Io, ""};
}

template <class Action>
ErrorKind FailureKind(Action action)
{
    return Failure(action).Kind();
}

} // namespace u3v_host
