/*
 * Flat USB3 Vision interface: discovery, control channel and stream channel behind opaque handles.
 *
 * Every function returns a 16-bit status, none lets an exception out, and each answers
 * U3V_STATUS_INVALID_HANDLE to a null handle before anything else. Calling order:
 * U3V_DiscoveryOpen, any number of U3V_DiscoveryDevices and U3V_GetDeviceInfo; per camera
 * U3V_OpenDevice, U3V_OpenControl, optionally U3V_OpenStream, acquisition; then U3V_CloseStream,
 * U3V_CloseControl, U3V_CloseDevice; last U3V_DiscoveryClose, because device handles refer to the
 * discovery's list.
 */
#ifndef ZR_U3V_TL_U3V_LIB_H
#define ZR_U3V_TL_U3V_LIB_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define U3V_API extern "C" __attribute__((visibility("default"))) uint16_t
#else
#define U3V_API extern __attribute__((visibility("default"))) uint16_t
#endif

/* Status of the U3V_* functions: 0, a GenCP status of the camera (0x8xxx, 0xAxxx), or one of the
 * layer's own codes. */
enum U3V_STATUS_LIST
{
    U3V_STATUS_SUCCESS = 0x0000,
    U3V_STATUS_GENCP_INVALID_PARAMETER = 0x8002, /* a length that no exchange can carry */
    U3V_STATUS_GENCP_MSG_TIMEOUT = 0x800B,       /* a bulk transfer failed, time-out included */
    U3V_STATUS_GENCP_INVALID_HEADER = 0x800E,    /* a read acknowledge of the wrong length */
    U3V_STATUS_OPEN_FAILED = 0xC001,             /* libusb_open gave no handle */
    U3V_STATUS_CLAIM_FAILED = 0xC006,        /* control or stream interface could not be claimed */
    U3V_STATUS_NOT_OPEN = 0xC007,            /* control channel not open */
    U3V_STATUS_BAD_PREFIX = 0xC008,          /* acknowledge prefix wrong */
    U3V_STATUS_BAD_ACK_ID = 0xC009,          /* acknowledge command id wrong */
    U3V_STATUS_BAD_REQUEST_ID = 0xC00A,      /* acknowledge request id wrong */
    U3V_STATUS_NO_STREAM_INTERFACE = 0xC014, /* no streaming interface, or no SIRM */
    U3V_STATUS_STREAM_NOT_OPEN = 0xC016,     /* stream channel not open */
    U3V_STATUS_NO_IMAGE_AVAILABLE = 0xC017,
    U3V_STATUS_IMAGE_TIMEOUT = 0xC018,         /* no image within the time-out */
    U3V_STATUS_IMAGE_MISSING_PACKETS = 0xC019, /* the image lacks data */
    U3V_STATUS_INVALID_HANDLE = 0xC01A,        /* a null handle was passed */
    U3V_STATUS_EXCEPTION = 0xC01B,             /* an exception was caught */
    U3V_STATUS_DEVICE_NOT_FOUND = 0xC01C,      /* no discovered camera has the requested GUID */
    U3V_STATUS_UNZIP_FAILED = 0xC01D           /* description file could not be unzipped */
};

typedef struct U3V_DeviceHandle_* U3V_DEVICE_HANDLE;
typedef struct U3V_ControlHandle_* U3V_CONTROL_HANDLE;
typedef struct U3V_StreamHandle_* U3V_STREAM_HANDLE;

#pragma pack(push, 1)

/* One camera as its USB3 Vision device information descriptor describes it; 471 bytes, strings
 * zero-terminated. */
typedef struct U3V_DEVICE_INFO
{
    uint32_t GenCPVersion; /* major << 16 | minor */
    uint32_t U3VVersion;   /* major << 16 | minor */
    char DeviceGUID[13];
    char VendorName[64];
    char ModelName[64];
    char FamilyName[64];
    char DeviceVersion[64];
    char ManufacturerInfo[64];
    char SerialNumber[64];
    char UserDefinedName[64];
    uint8_t SpeedSupport; /* bit 0 low, 1 full, 2 high, 3 SuperSpeed */
    uint8_t InUse;        /* 1 while this library holds the camera open */
} U3V_DEVICE_INFO;

/* One image as its leader describes it; 42 bytes. */
typedef struct IMAGE_HEADER
{
    uint64_t nBlockId;
    uint64_t nTimestamp;    /* as the camera counts, nanoseconds in the USB3 Vision standard */
    uint32_t nPixelFormat;  /* PFNC, 32 bit */
    uint32_t nSizeX;        /* pixels */
    uint32_t nSizeY;        /* lines */
    uint32_t nOffsetX;      /* pixels */
    uint32_t nOffsetY;      /* lines */
    uint16_t nPaddingX;     /* bytes */
    uint32_t nMissingBytes; /* bytes an incomplete image lacks, 0 when unknown; not set by the
                               stream channel */
} IMAGE_HEADER;

#pragma pack(pop)

U3V_API U3V_DiscoveryOpen(void);
U3V_API U3V_DiscoveryClose(void);
U3V_API U3V_DiscoveryDevices(uint16_t* pnCount);
U3V_API U3V_GetDeviceInfo(uint16_t nIndex, U3V_DEVICE_INFO* pInfo);

U3V_API U3V_OpenDevice(const char* sGUID, U3V_DEVICE_HANDLE* phDevice);
U3V_API U3V_CloseDevice(U3V_DEVICE_HANDLE hDevice);

U3V_API U3V_OpenControl(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE* phControl);
U3V_API U3V_CloseControl(U3V_CONTROL_HANDLE hControl);
U3V_API U3V_ReadMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                    void* pDestination);
U3V_API U3V_WriteMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                     const void* pSource);
U3V_API U3V_MaximumDeviceResponseTime(U3V_CONTROL_HANDLE hControl, uint32_t* pnMilliseconds);

U3V_API U3V_OpenStream(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE hControl,
                       U3V_STREAM_HANDLE* phStream, uint32_t nArgument);
U3V_API U3V_CloseStream(U3V_STREAM_HANDLE hStream);
U3V_API U3V_AcquisitionStart(U3V_STREAM_HANDLE hStream, uint32_t nImagesToAcquire);
U3V_API U3V_AcquisitionStop(U3V_STREAM_HANDLE hStream, uint64_t* pnImagesAcquired,
                            uint64_t* pnLostCount);
U3V_API U3V_GetImage(U3V_STREAM_HANDLE hStream, void* pDestination, uint32_t nTimeout,
                     IMAGE_HEADER* pHeader);
U3V_API U3V_GetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t* pnTransferSize);
U3V_API U3V_SetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t nTransferSize);
U3V_API U3V_GetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t* pnBufferCount);
U3V_API U3V_SetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t nBufferCount);

#endif
