// What a camera and the machine around it may do besides sending images: texts that come late or
// are no texts, several description files or none, no stream, small limits of the system, a fork.

#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <description_url.h>

#include "standard_camera.h"

namespace standard_tests {
namespace {

class Surroundings : public StandardProducer
{
protected:
    void List(const std::string& options)
    {
        camera.emplace(options);
        session.emplace(Gentl(), consumer::Search{.update_ms = 5000});
    }
    std::string Text(DEVICE_INFO_CMD command)
    {
        return session->CameraText(session->CameraIds().at(0), command);
    }
    uint32_t UrlCount() const
    {
        uint32_t count = 0;
        GENTL_CALL(Gentl(), GCGetNumPortURLs, opened->Port(), &count);
        return count;
    }
    template <class T>
    T UrlValue(uint32_t index, URL_INFO_CMD command) const
    {
        return Gentl().Value<T>(
            "GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* data, size_t* size) {
                return Gentl().GCGetPortURLInfo(opened->Port(), index, command, type, data, size);
            });
    }
    std::string UrlText(uint32_t index, URL_INFO_CMD command) const
    {
        return Gentl().Text("GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* data, size_t* size) {
            return Gentl().GCGetPortURLInfo(opened->Port(), index, command, type, data, size);
        });
    }
    GC_ERROR HashStatus(uint32_t index) const
    {
        std::array<uint8_t, 20> hash{};
        size_t size = hash.size();
        return Gentl().GCGetPortURLInfo(opened->Port(), index, URL_INFO_FILE_SHA1_HASH, nullptr,
                                        hash.data(), &size);
    }
    std::string FileBehind(uint32_t index) const
    {
        const auto place = consumer::ParseDescriptionUrl(UrlText(index, URL_INFO_URL));
        std::string file(place.length, '\0');
        opened->Read(place.address, file.data(), file.size());
        return file;
    }
};

// ---- texts

TEST_F(Surroundings, List_TextsComeLate_AreAllThere)
{
    List("guid=120900000042,serial=S42,faults=strings-late:100");
    EXPECT_EQ(session->CameraIds().at(0), "120900000042");
    EXPECT_EQ(Text(DEVICE_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(Text(DEVICE_INFO_SERIAL_NUMBER), "S42");
}

TEST_F(Surroundings, List_TextsComeLaterThanTheTimeout_CountForTheNextUpdate)
{
    camera.emplace("guid=120900000042,faults=strings-late:100");
    session.emplace(Gentl(), consumer::Search{.update_ms = 1});
    EXPECT_TRUE(Eventually([this] {
        session->Update({.update_ms = 1});
        const auto ids = session->CameraIds();
        return ids.size() == 1 && ids[0] == "120900000042";
    }));
}

TEST_F(Surroundings, List_ControlCharacters_AreBlanks)
{
    List("vendor=Bell%07Works,serial=%1B[2J1,encoding=utf8");
    EXPECT_EQ(Text(DEVICE_INFO_VENDOR), "Bell Works");
    EXPECT_EQ(Text(DEVICE_INFO_SERIAL_NUMBER), " [2J1");
    opened.emplace(*session, 0, DEVICE_ACCESS_EXCLUSIVE);
    EXPECT_EQ(Text(DEVICE_INFO_VENDOR), "Bell Works") << "as its registers have it";
}

// ---- description files

TEST_F(Surroundings, DescriptionFiles_Several_AreOfferedBestFirst)
{
    Open("manifest=1.0/9.0.0+1.1/2.3.4+1.1/2.3.4/zip+1.1/10.0.0/no-hash");
    ASSERT_EQ(UrlCount(), 4U);
    const std::array<std::array<int32_t, 3>, 4> versions{
        {{10, 0, 0}, {2, 3, 4}, {2, 3, 4}, {9, 0, 0}}};
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(UrlValue<int32_t>(i, URL_INFO_SCHEMA_VER_MAJOR), 1) << i;
        EXPECT_EQ(UrlValue<int32_t>(i, URL_INFO_SCHEMA_VER_MINOR), i < 3 ? 1 : 0) << i;
        EXPECT_EQ(UrlValue<int32_t>(i, URL_INFO_FILE_VER_MAJOR), versions.at(i)[0]) << i;
        EXPECT_EQ(UrlValue<int32_t>(i, URL_INFO_FILE_VER_MINOR), versions.at(i)[1]) << i;
        EXPECT_EQ(UrlValue<int32_t>(i, URL_INFO_FILE_VER_SUBMINOR), versions.at(i)[2]) << i;
        EXPECT_EQ(HashStatus(i), i == 0 ? GC_ERR_NOT_AVAILABLE : GC_ERR_SUCCESS) << i;
        const auto place = consumer::ParseDescriptionUrl(UrlText(i, URL_INFO_URL));
        EXPECT_EQ(UrlValue<uint64_t>(i, URL_INFO_FILE_REGISTER_ADDRESS), place.address) << i;
        EXPECT_EQ(UrlValue<uint64_t>(i, URL_INFO_FILE_SIZE), place.length) << i;
        const bool isZip = FileBehind(i).starts_with("PK");
        EXPECT_EQ(isZip, i == 1) << "zipped before plain";
        EXPECT_EQ(UrlText(i, URL_INFO_FILENAME).ends_with(".zip"), isZip);
    }
    EXPECT_NE(FileBehind(0).find("MajorVersion=\"10\""), std::string::npos);
}

TEST_F(Surroundings, DescriptionFiles_NoneOrNonsense_TheCameraOpensAndStreams)
{
    for (const char* manifest : {"none", "1.1/empty+1.1/huge+1.1/wrong-type"}) {
        Open(std::string("width=64,height=64,manifest=") + manifest);
        EXPECT_EQ(UrlCount(), 0U) << manifest;
        char url[64];
        size_t size = sizeof(url);
        EXPECT_NE(Gentl().GCGetPortURL(opened->Port(), url, &size), GC_ERR_SUCCESS);
        Announce();
        images->Start();
        ExpectWhole(0, 3);
        images.reset();
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

// ---- streams

TEST_F(Surroundings, NumberOfStreams_IsWhatTheCameraHas)
{
    const std::pair<const char*, uint32_t> rows[] = {
        {"", 1}, {"faults=no-stream-interface", 0}, {"faults=no-sirm", 0}};
    for (const auto& [options, wanted] : rows) {
        List(options);
        const consumer::Camera device(*session, session->CameraIds().at(0));
        uint32_t count = 99;
        GENTL_CALL(Gentl(), DevGetNumDataStreams, device.Device(), &count);
        EXPECT_EQ(count, wanted) << options;
        char id[64];
        size_t size = sizeof(id);
        EXPECT_EQ(Gentl().DevGetDataStreamID(device.Device(), wanted, id, &size),
                  GC_ERR_INVALID_INDEX)
            << options;
        DS_HANDLE stream = nullptr;
        const GC_ERROR status = Gentl().DevOpenDataStream(device.Device(), "Stream0", &stream);
        EXPECT_EQ(status, wanted != 0 ? GC_ERR_SUCCESS : GC_ERR_INVALID_ID) << options;
        if (status == GC_ERR_SUCCESS) {
            EXPECT_EQ(Gentl().DSClose(stream), GC_ERR_SUCCESS);
        }
        camera->Unplug();
    }
}

// ---- events

TEST_F(Surroundings, RemoteEvents_SeveralInOnePacket_AreToldOneByOne)
{
    Open("events=1,multi-event=1");
    EVENT_HANDLE event = Register(opened->Device(), EVENT_REMOTE_DEVICE);
    constexpr std::array<uint16_t, 3> kIds{0x9001, 0x9002, 0x9003};
    for (const uint16_t id : kIds) {
        EXPECT_TRUE(camera->SendEvent(id, {1, 2}));
    }
    for (const uint64_t wanted : kIds) {
        const auto record = Record(event);
        uint64_t id = 0;
        size_t size = sizeof(id);
        ASSERT_EQ(Gentl().EventGetDataInfo(event, record.data(), record.size(), EVENT_DATA_NUMID,
                                           nullptr, &id, &size),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(id, wanted);
    }
}

// ---- limits of the system

TEST_F(Surroundings, SmallUsbfsLimit_FewerTransfersAreUnderWayAndImagesAreWhole)
{
    vusb_set_usbfs_limit(512 * 1024);
    Open("width=640,height=480");
    Announce();
    images->Start();
    ExpectWhole(0, 20);
    EXPECT_LE(vusb_usbfs_used(), 512U * 1024U);
}

TEST_F(Surroundings, UsbfsLimitReachedWhileStreaming_IsToldAndStreamingGoesOnWhenThereIsRoom)
{
    Open("width=640,height=480");
    Announce();
    EVENT_HANDLE error = Register(opened->Stream().Handle(), EVENT_ERROR);
    images->Start();
    ExpectWhole(0, 3);
    vusb_set_usbfs_limit(1);
    std::vector<uint8_t> record;
    ASSERT_TRUE(Eventually([&] {
        if (const auto image = images->Next(0)) {
            Queue(*image);
        }
        record.resize(1024);
        size_t size = record.size();
        const GC_ERROR status = Gentl().EventGetData(error, record.data(), &size, 0);
        record.resize(size);
        return status == GC_ERR_SUCCESS;
    }));
    int32_t code = 0;
    size_t size = sizeof(code);
    EXPECT_EQ(Gentl().EventGetDataInfo(error, record.data(), record.size(), EVENT_DATA_ID, nullptr,
                                       &code, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(code, GC_ERR_RESOURCE_EXHAUSTED);
    char text[1024];
    size = sizeof(text);
    EXPECT_EQ(Gentl().EventGetDataInfo(error, record.data(), record.size(), EVENT_DATA_VALUE,
                                       nullptr, text, &size),
              GC_ERR_SUCCESS);
    EXPECT_NE(std::string(text).find("usbfs_memory_mb to "), std::string::npos) << text;
    vusb_set_usbfs_limit(0);
    const uint64_t last = opened->Stream().Info<uint64_t>(STREAM_INFO_NUM_STARTED);
    EXPECT_TRUE(Eventually([&] {
        if (const auto image = images->Next(0)) {
            EXPECT_TRUE(image->isIncomplete || IsExact(*image));
            Queue(*image);
        }
        return opened->Stream().Info<uint64_t>(STREAM_INFO_NUM_STARTED) > last + 10;
    }));
    images->Stop();
}

// ---- threads and processes

// However many cameras stream.
TEST_F(Surroundings, Threads_OneServesTheWholeLibrary)
{
    std::thread([] {}).join(); // with the first one a sanitizer may start its own
    const size_t before = ThreadCount();
    const vusb::Camera second("guid=120900000002,width=64,height=64");
    camera.emplace("width=64,height=64,events=1");
    session.emplace(Gentl(), consumer::Search{.update_ms = 5000});
    const OpenCamera left(*session, 0);
    const OpenCamera right(*session, 1);
    EXPECT_LE(ThreadCount(), before + 1);
    for (const OpenCamera* device : {&left, &right}) {
        consumer::Acquisition taken(
            device->Stream(), 64 * 64, 3, BufferMemory::OfConsumer,
            consumer::RegisterSwitch(*device, camera_features::kAcquisition));
        taken.Start();
        EXPECT_TRUE(taken.Next(kImageTimeout));
        EXPECT_LE(ThreadCount(), before + 1);
    }
}

// The child has none of it, ends as it likes, and takes nothing from its parent.
TEST_F(Surroundings, Fork_WhileImagesCome_ChildIsRefusedAndTheParentStreamsOn)
{
    Open("width=320,height=240");
    Announce();
    images->Start();
    ExpectWhole(0, 5);
    DS_HANDLE const stream = opened->Stream().Handle();
    EVENT_HANDLE const event = images->NewBufferEvent();
    const pid_t child = fork();
    if (child == 0) {
        alarm(60); // a hang is a failure
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        const bool refused =
            Gentl().EventGetData(event, &data, &size, GENTL_INFINITE) == GC_ERR_NOT_INITIALIZED &&
            Gentl().DSQueueBuffer(stream, images->Buffers()[0]) == GC_ERR_NOT_INITIALIZED &&
            Gentl().DSStopAcquisition(stream, ACQ_STOP_FLAGS_KILL) == GC_ERR_NOT_INITIALIZED &&
            Gentl().DSClose(stream) == GC_ERR_NOT_INITIALIZED &&
            Gentl().GCCloseLib() == GC_ERR_NOT_INITIALIZED;
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ExpectWhole(5, 20);
    images->Stop();
}

} // namespace
} // namespace standard_tests
