#include "event_data.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "last_error.h"

namespace standard_tl {
namespace {

constexpr size_t kCodeSize = sizeof(int32_t);
constexpr size_t kLongestText = 512;
constexpr size_t kLongestName = 64;
constexpr size_t kLongestPacket = 0xFFFF; // a packet's length field has 16 bits
constexpr size_t kRemoteIdOffset = 2;
constexpr size_t kRemoteIdEnd = 4;

struct RecordRow
{
    EVENT_TYPE type;
    size_t smallest; // bytes without which a record says nothing
    size_t largest;
};

constexpr RecordRow kRecords[] = {
    {EVENT_ERROR, kCodeSize, kCodeSize + kLongestText},
    {EVENT_NEW_BUFFER, sizeof(EVENT_NEW_BUFFER_DATA), sizeof(EVENT_NEW_BUFFER_DATA)},
    {EVENT_FEATURE_INVALIDATE, 1, kLongestName},
    {EVENT_REMOTE_DEVICE, kRemoteIdEnd, kLongestPacket},
};

const RecordRow& RowOf(EVENT_TYPE type)
{
    return *std::find_if(std::begin(kRecords), std::end(kRecords),
                         [type](const RecordRow& row) { return row.type == type; });
}

// A text that ends at its zero, or with the record.
Value TextIn(Bytes bytes)
{
    const auto end = std::find(bytes.begin(), bytes.end(), uint8_t{0});
    return std::string(bytes.begin(), end);
}

int32_t CodeIn(Bytes record)
{
    int32_t code;
    memcpy(&code, record.data(), sizeof(code));
    return code;
}

EVENT_NEW_BUFFER_DATA BufferIn(Bytes record)
{
    EVENT_NEW_BUFFER_DATA data;
    memcpy(&data, record.data(), sizeof(data));
    return data;
}

uint32_t RemoteIdIn(Bytes record)
{
    return record[kRemoteIdOffset] | uint32_t{record[kRemoteIdOffset + 1]} << 8;
}

Value RemoteIdText(Bytes record)
{
    char text[8];
    snprintf(text, sizeof(text), "%04X", RemoteIdIn(record));
    return std::string(text);
}

struct DataRow
{
    EVENT_TYPE event;
    int32_t command;
    INFO_DATATYPE type;
    Value (*get)(Bytes record);
};

constexpr DataRow kData[] = {
    {EVENT_ERROR, EVENT_DATA_ID, INFO_DATATYPE_INT32,
     [](Bytes record) -> Value { return CodeIn(record); }},
    {EVENT_ERROR, EVENT_DATA_VALUE, INFO_DATATYPE_STRING,
     [](Bytes record) { return TextIn(record.subspan(kCodeSize)); }},
    {EVENT_NEW_BUFFER, EVENT_DATA_ID, INFO_DATATYPE_PTR,
     [](Bytes record) -> Value { return BufferIn(record).BufferHandle; }},
    {EVENT_NEW_BUFFER, EVENT_DATA_VALUE, INFO_DATATYPE_PTR,
     [](Bytes record) -> Value { return BufferIn(record).pUserPointer; }},
    {EVENT_FEATURE_INVALIDATE, EVENT_DATA_ID, INFO_DATATYPE_STRING, TextIn},
    {EVENT_REMOTE_DEVICE, EVENT_DATA_ID, INFO_DATATYPE_STRING, RemoteIdText},
    {EVENT_REMOTE_DEVICE, EVENT_DATA_VALUE, INFO_DATATYPE_BUFFER,
     [](Bytes record) -> Value { return record; }},
    {EVENT_REMOTE_DEVICE, EVENT_DATA_NUMID, INFO_DATATYPE_UINT64,
     [](Bytes record) -> Value { return RemoteIdIn(record); }},
};

bool IsKnownCommand(int32_t command)
{
    return command >= EVENT_DATA_ID && command <= EVENT_DATA_NUMID;
}

} // namespace

size_t LargestRecord(EVENT_TYPE type)
{
    return RowOf(type).largest;
}

std::vector<uint8_t> ErrorRecord(GC_ERROR code, std::string_view text)
{
    const std::string_view shown = text.substr(0, kLongestText - 1);
    std::vector<uint8_t> record(kCodeSize + shown.size() + 1);
    memcpy(record.data(), &code, kCodeSize);
    memcpy(record.data() + kCodeSize, shown.data(), shown.size());
    return record;
}

std::vector<uint8_t> FeatureRecord(std::string_view name)
{
    std::vector<uint8_t> record(name.begin(), name.end());
    record.push_back(0);
    return record;
}

GC_ERROR AnswerEventData(EVENT_TYPE type, Bytes record, int32_t command, const InfoOut& out)
{
    if (record.size() < RowOf(type).smallest) {
        return Refuse(GC_ERR_INVALID_PARAMETER, "iInSize is less than a record of the event has");
    }
    const auto* const row =
        std::find_if(std::begin(kData), std::end(kData), [type, command](const DataRow& r) {
            return r.event == type && r.command == command;
        });
    if (row == std::end(kData)) {
        return RefuseCommand(IsKnownCommand(command) ? GC_ERR_NOT_AVAILABLE
                                                     : GC_ERR_NOT_IMPLEMENTED,
                             "record", command);
    }
    return AnswerInfo(row->type, row->get(record), out);
}

} // namespace standard_tl
