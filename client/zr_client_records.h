#pragma once

#include <zr_u3v_tl/gentl.h>

#include <cstdint>

// Plain records that the client fills from the information queries, one per module kind. Texts are
// always terminated; what is longer than its field is cut, what cannot be read is empty or zero.

constexpr size_t kZrClientTextSize = 256;
constexpr size_t kZrClientPathSize = 4096;

struct _ZRK_TL_INFO
{
    char id[kZrClientTextSize];
    char vendor[kZrClientTextSize];
    char model[kZrClientTextSize];
    char version[kZrClientTextSize];
    char tlType[kZrClientTextSize];
    char name[kZrClientTextSize];
    char pathName[kZrClientPathSize];
    char displayName[kZrClientTextSize];
    uint32_t genTLMajor;
    uint32_t genTLMinor;
};

struct _ZRK_IF_INFO
{
    char id[kZrClientTextSize];
    char displayName[kZrClientTextSize];
    char tlType[kZrClientTextSize];
};

struct _ZRK_DEV_INFO
{
    IF_HANDLE hIface; // open as long as the record stands in the device list
    char id[kZrClientTextSize];
    char vendor[kZrClientTextSize];
    char model[kZrClientTextSize];
    char displayName[kZrClientTextSize];
    char tlType[kZrClientTextSize];
    int32_t accessStatus;
    char userDefinedName[kZrClientTextSize];
    char serialNumber[kZrClientTextSize];
    char version[kZrClientTextSize];
    uint64_t timestampFrequency; // ticks per second
};

struct _ZRK_PORT_INFO
{
    char id[kZrClientTextSize];
    char vendor[kZrClientTextSize];
    char model[kZrClientTextSize];
    char version[kZrClientTextSize];
    char module[kZrClientTextSize];
    bool8_t littleEndian;
    bool8_t bigEndian;
    bool8_t accessRead;
    bool8_t accessWrite;
    bool8_t accessNA;
    bool8_t accessNI;
    char name[kZrClientTextSize];
};

// What the acquisition reports of one frame.
struct _ZR_BUFFER_INFO
{
    uint64_t frameId;
    void* infoPtr; // base address of the image
    size_t width;
    size_t height;
    uint64_t timestamp;
};
