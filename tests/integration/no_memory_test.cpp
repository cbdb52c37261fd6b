// Every allocation that a call of the consumer's makes fails once, one after the other: whatever
// fails undoes everything, and the same call succeeds as soon as there is memory again.

#include "failing_malloc.h"
#include "producer_fixture.h"

#include <chrono>
#include <functional>
#include <thread>

namespace {

// What the library holds of the bus.
struct Held
{
    uint64_t contexts;
    uint64_t handles;
    uint64_t transfers;
    uint64_t references;
    uint64_t descriptors;
    bool operator==(const Held&) const = default;
};

Held HeldNow()
{
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    return {live.contexts, live.handles, live.transfers, live.device_references,
            live.config_descriptors};
}

// What it holds while no pass over the bus is under way.
Held HeldAtRest()
{
    for (;;) {
        const uint64_t begun = vusb_call_count("libusb_get_device_list");
        const Held held = HeldNow();
        if (vusb_call_count("libusb_free_device_list") == begun &&
            vusb_call_count("libusb_get_device_list") == begun) {
            return held;
        }
        std::this_thread::yield();
    }
}

// Whether the library comes to hold this, and no more; a pass over the bus may be on its way.
bool ComesToHold(const Held& wanted)
{
    return zr_test::WaitUntil([&wanted] { return HeldNow() == wanted; }, std::chrono::seconds(10));
}

class NoMemory : public ProducerTest, public ::testing::WithParamInterface<FailingMalloc::How>
{
protected:
    static void SetUpTestSuite() { FailingMalloc::Spare(reinterpret_cast<void*>(&vusb_reset)); }

    // Fails one allocation of `call` after the other. A call that fails says so by one of its
    // statuses, leaves the bus as it was and succeeds when repeated; `undo` ends what it has done.
    static void FailEach(
        const char* name, const std::function<GC_ERROR()>& call, const std::function<void()>& undo,
        const std::function<void()>& afterFailure = [] {})
    {
        const Held before = HeldAtRest();
        int nth = 0;
        for (bool refused = true; refused; ++nth) {
            GC_ERROR status = GC_ERR_SUCCESS;
            {
                const FailingMalloc failing(nth, GetParam());
                status = call();
                refused = failing.Refused();
            }
            if (status != GC_ERR_SUCCESS) {
                EXPECT_TRUE(refused) << name << " without a reason";
                EXPECT_TRUE(status == GC_ERR_OUT_OF_MEMORY || status == GC_ERR_ERROR)
                    << name << " answers " << status << " at allocation " << nth;
                EXPECT_TRUE(ComesToHold(before)) << name << " leaks at allocation " << nth;
                ASSERT_NO_FATAL_FAILURE(afterFailure());
                ASSERT_EQ(call(), GC_ERR_SUCCESS) << name << " after allocation " << nth;
            }
            ASSERT_NO_FATAL_FAILURE(undo());
        }
        RecordProperty(name, nth);
    }

    // The same for a call that ends something: it may not fail.
    static void FailEachEnd(const char* name, const std::function<void()>& prepare,
                            const std::function<GC_ERROR()>& call)
    {
        bool refused = true;
        for (int nth = 0; refused; ++nth) {
            ASSERT_NO_FATAL_FAILURE(prepare());
            const FailingMalloc failing(nth, GetParam());
            const GC_ERROR status = call();
            refused = failing.Refused();
            EXPECT_EQ(status, GC_ERR_SUCCESS) << name << " at allocation " << nth;
        }
    }
};

struct Handles
{
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE event = nullptr;
    std::vector<BUFFER_HANDLE> buffers = std::vector<BUFFER_HANDLE>(3);
};

const char* const kInterfaceId = "ZRK-USB-3-IF ID";
const char* const kGuid = "120900000001";

TEST_P(NoMemory, OpeningTheSystemAndItsInterface)
{
    const vusb::Camera camera;
    const auto& api = Gentl();
    Handles h;
    static_cast<void>(api.TLClose(nullptr)); // the thread has its record of the last error
    FailEach(
        "TLOpen", [&] { return api.TLOpen(&h.system); },
        [&] {
            ASSERT_EQ(api.TLClose(h.system), GC_ERR_SUCCESS);
            h.system = nullptr;
        });
    ASSERT_EQ(api.TLOpen(&h.system), GC_ERR_SUCCESS);
    FailEach(
        "TLUpdateInterfaceList", [&] { return api.TLUpdateInterfaceList(h.system, nullptr, 0); },
        [] {});
    FailEach(
        "TLOpenInterface",
        [&] { return api.TLOpenInterface(h.system, kInterfaceId, &h.interface); },
        [&] {
            ASSERT_EQ(api.IFClose(h.interface), GC_ERR_SUCCESS);
            h.interface = nullptr;
        });
    ASSERT_EQ(api.TLClose(h.system), GC_ERR_SUCCESS);
}

TEST_P(NoMemory, OpeningTheCamera)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const auto& api = Gentl();
    Handles h;
    static_cast<void>(api.TLClose(nullptr));
    FailEach(
        "IFOpenDevice",
        [&] {
            return api.IFOpenDevice(session.Interface(), kGuid, DEVICE_ACCESS_CONTROL, &h.device);
        },
        [&] {
            ASSERT_EQ(api.DevClose(h.device), GC_ERR_SUCCESS);
            h.device = nullptr;
        });
}

TEST_P(NoMemory, OpeningTheStream)
{
    const vusb::Camera camera;
    const auto session = OpenSession();
    const consumer::Camera opened(session, kGuid);
    const auto& api = Gentl();
    Handles h;
    static_cast<void>(api.TLClose(nullptr));
    FailEach(
        "DevOpenDataStream", [&] { return api.DevOpenDataStream(opened.Device(), "0", &h.stream); },
        [&] {
            ASSERT_EQ(api.DSClose(h.stream), GC_ERR_SUCCESS);
            h.stream = nullptr;
        });
}

TEST_P(NoMemory, AnnouncingQueueingAndRegistering)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const auto& api = Gentl();
    DS_HANDLE const stream = opened.Stream().Handle();
    Handles h;
    static_cast<void>(api.TLClose(nullptr));
    FailEach(
        "GCRegisterEvent", [&] { return api.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &h.event); },
        [&] { ASSERT_EQ(api.GCUnregisterEvent(stream, EVENT_NEW_BUFFER), GC_ERR_SUCCESS); });
    FailEach(
        "DSAllocAndAnnounceBuffer",
        [&] { return api.DSAllocAndAnnounceBuffer(stream, 4096, nullptr, &h.buffers[0]); },
        [&] {
            ASSERT_EQ(api.DSRevokeBuffer(stream, h.buffers[0], nullptr, nullptr), GC_ERR_SUCCESS);
            h.buffers[0] = nullptr;
        });
    ASSERT_EQ(api.DSAllocAndAnnounceBuffer(stream, 4096, nullptr, &h.buffers[0]), GC_ERR_SUCCESS);
    FailEach(
        "DSQueueBuffer", [&] { return api.DSQueueBuffer(stream, h.buffers[0]); },
        [&] { ASSERT_EQ(api.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS); });
    FailEach(
        "DSFlushQueue", [&] { return api.DSFlushQueue(stream, ACQ_QUEUE_UNQUEUED_TO_INPUT); },
        [&] { ASSERT_EQ(api.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS); });
    ASSERT_EQ(api.DSRevokeBuffer(stream, h.buffers[0], nullptr, nullptr), GC_ERR_SUCCESS);
}

// Starts the acquisition of `stream` into the buffers of `h`, which are announced.
void ExpectAnImage(const consumer::Producer& api, EVENT_HANDLE event)
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    EXPECT_EQ(api.EventGetData(event, &data, &size, kImageTimeout), GC_ERR_SUCCESS);
}

TEST_P(NoMemory, StartingAndStopping)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const auto& api = Gentl();
    DS_HANDLE const stream = opened.Stream().Handle();
    Handles h;
    static_cast<void>(api.TLClose(nullptr));
    for (BUFFER_HANDLE& buffer : h.buffers) {
        ASSERT_EQ(api.DSAllocAndAnnounceBuffer(stream, camera.PayloadSize(), nullptr, &buffer),
                  GC_ERR_SUCCESS);
    }
    ASSERT_EQ(api.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &h.event), GC_ERR_SUCCESS);
    const auto start = [&] { return api.DSStartAcquisition(stream, 0, GENTL_INFINITE); };
    const auto streamAndStop = [&] {
        ASSERT_EQ(api.DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
        ExpectAnImage(api, h.event);
        ASSERT_EQ(api.DSStopAcquisition(stream, 0), GC_ERR_SUCCESS);
        ASSERT_EQ(api.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    };
    FailEach("DSStartAcquisition", start, streamAndStop, [&] {
        ASSERT_EQ(camera.Peek<uint32_t>(camera_features::kAcquisition), 0u) << "left streaming";
    });
    FailEachEnd(
        "DSStopAcquisition", [&] { ASSERT_EQ(start(), GC_ERR_SUCCESS); },
        [&] { return api.DSStopAcquisition(stream, 0); });
    FailEachEnd(
        "DSRevokeBuffer",
        [&] {
            if (h.buffers[0] == nullptr) {
                ASSERT_EQ(api.DSAllocAndAnnounceBuffer(stream, 64, nullptr, &h.buffers[0]),
                          GC_ERR_SUCCESS);
            }
        },
        [&] {
            return api.DSRevokeBuffer(stream, std::exchange(h.buffers[0], nullptr), nullptr,
                                      nullptr);
        });
    ASSERT_EQ(api.GCUnregisterEvent(stream, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
}

// Everything is open and acquiring; each of the closes in turn ends it.
TEST_P(NoMemory, ClosingWhileAcquiring)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto& api = Gentl();
    Handles h;
    bool isInitialised = true;
    const auto acquire = [&] {
        h = {};
        ASSERT_EQ(api.TLOpen(&h.system), GC_ERR_SUCCESS);
        ASSERT_EQ(api.TLUpdateInterfaceList(h.system, nullptr, 0), GC_ERR_SUCCESS);
        ASSERT_EQ(api.TLOpenInterface(h.system, kInterfaceId, &h.interface), GC_ERR_SUCCESS);
        GC_ERROR status = GC_ERR_TIMEOUT;
        while (status == GC_ERR_TIMEOUT) {
            status = api.IFUpdateDeviceList(h.interface, nullptr, kUpdateTime);
        }
        ASSERT_EQ(status, GC_ERR_SUCCESS);
        ASSERT_EQ(api.IFOpenDevice(h.interface, kGuid, DEVICE_ACCESS_CONTROL, &h.device),
                  GC_ERR_SUCCESS);
        ASSERT_EQ(api.DevOpenDataStream(h.device, "0", &h.stream), GC_ERR_SUCCESS);
        ASSERT_EQ(
            api.DSAllocAndAnnounceBuffer(h.stream, camera.PayloadSize(), nullptr, &h.buffers[0]),
            GC_ERR_SUCCESS);
        ASSERT_EQ(api.GCRegisterEvent(h.stream, EVENT_NEW_BUFFER, &h.event), GC_ERR_SUCCESS);
        ASSERT_EQ(api.DSQueueBuffer(h.stream, h.buffers[0]), GC_ERR_SUCCESS);
        ASSERT_EQ(api.DSStartAcquisition(h.stream, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
    };
    const auto closeDevice = [&] { return api.DevClose(h.device); };
    const auto closeInterface = [&] { return api.IFClose(h.interface); };
    const auto closeSystem = [&] { return api.TLClose(h.system); };
    FailEachEnd("DSClose", acquire, [&] {
        const GC_ERROR status = api.DSClose(h.stream);
        EXPECT_EQ(closeSystem(), GC_ERR_SUCCESS);
        return status;
    });
    FailEachEnd("DevClose", acquire, [&] {
        const GC_ERROR status = closeDevice();
        EXPECT_EQ(closeSystem(), GC_ERR_SUCCESS);
        return status;
    });
    FailEachEnd("IFClose", acquire, [&] {
        const GC_ERROR status = closeInterface();
        EXPECT_EQ(closeSystem(), GC_ERR_SUCCESS);
        return status;
    });
    FailEachEnd("TLClose", acquire, closeSystem);
    EXPECT_TRUE(HeldNow() == Held{});
    FailEachEnd(
        "GCCloseLib",
        [&] {
            if (!isInitialised) {
                ASSERT_EQ(api.GCInitLib(), GC_ERR_SUCCESS);
            }
            acquire();
        },
        [&] {
            isInitialised = false;
            return api.GCCloseLib();
        });
    EXPECT_TRUE(HeldNow() == Held{});
    ASSERT_EQ(api.GCInitLib(), GC_ERR_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(Allocation, NoMemory,
                         ::testing::Values(FailingMalloc::How::Once, FailingMalloc::How::FromNow),
                         [](const auto& parameter) {
                             return parameter.param == FailingMalloc::How::Once ? "OnceFails"
                                                                                : "FailFromThere";
                         });

} // namespace
