/**
 * @file
 * Flat USB3 Vision interface: discovery, control channel and stream channel behind opaque handles.
 *
 * Every function returns a 16-bit status, none lets an exception out, and each answers
 * U3V_STATUS_INVALID_HANDLE to a null handle before anything else. Calling order:
 * U3V_DiscoveryOpen, any number of U3V_DiscoveryDevices and U3V_GetDeviceInfo; per camera
 * U3V_OpenDevice, U3V_OpenControl, optionally U3V_OpenStream, acquisition; then U3V_CloseStream,
 * U3V_CloseControl, U3V_CloseDevice; last U3V_DiscoveryClose, because device handles refer to the
 * discovery's list.
 *
 * Contracts. [in] is read, [out] written. Every function may answer U3V_STATUS_EXCEPTION (out of
 * memory, for one) and, for a null handle or null [out] pointer, U3V_STATUS_INVALID_HANDLE before
 * anything else happens; neither is repeated below. Handles other than NULL must be live. Functions
 * may be called from any thread; closing a handle must not overlap with another call that uses it.
 */
#ifndef ZR_U3V_TL_U3V_LIB_H
#define ZR_U3V_TL_U3V_LIB_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
/** In front of every exported function. */
#define U3V_API extern "C" __attribute__((visibility("default"))) uint16_t
#else
#define U3V_API extern __attribute__((visibility("default"))) uint16_t
#endif

/** Status of the U3V_* functions: 0, a GenCP status of the camera (0x8xxx, 0xAxxx), or one of the
 * layer's own codes. */
enum U3V_STATUS_LIST
{
    U3V_STATUS_SUCCESS = 0x0000,                 /**< success */
    U3V_STATUS_GENCP_INVALID_PARAMETER = 0x8002, /**< a length that no exchange can carry */
    U3V_STATUS_GENCP_MSG_TIMEOUT = 0x800B,       /**< a bulk transfer failed, time-out included */
    U3V_STATUS_GENCP_INVALID_HEADER = 0x800E,    /**< a read acknowledge of the wrong length */
    U3V_STATUS_OPEN_FAILED = 0xC001,             /**< libusb_open failed */
    U3V_STATUS_CLAIM_FAILED = 0xC006,   /**< control or stream interface could not be claimed */
    U3V_STATUS_NOT_OPEN = 0xC007,       /**< control channel not open */
    U3V_STATUS_BAD_PREFIX = 0xC008,     /**< acknowledge prefix wrong */
    U3V_STATUS_BAD_ACK_ID = 0xC009,     /**< acknowledge command id wrong */
    U3V_STATUS_BAD_REQUEST_ID = 0xC00A, /**< acknowledge request id wrong */
    U3V_STATUS_NO_STREAM_INTERFACE = 0xC014,   /**< no streaming interface, or no SIRM */
    U3V_STATUS_STREAM_NOT_OPEN = 0xC016,       /**< stream channel not open */
    U3V_STATUS_NO_IMAGE_AVAILABLE = 0xC017,    /**< no image is there */
    U3V_STATUS_IMAGE_TIMEOUT = 0xC018,         /**< no image within the time-out */
    U3V_STATUS_IMAGE_MISSING_PACKETS = 0xC019, /**< the image lacks data */
    U3V_STATUS_INVALID_HANDLE = 0xC01A,        /**< a null handle was passed */
    U3V_STATUS_EXCEPTION = 0xC01B,             /**< an exception was caught */
    U3V_STATUS_DEVICE_NOT_FOUND = 0xC01C,      /**< no discovered camera has the requested GUID */
    U3V_STATUS_UNZIP_FAILED = 0xC01D           /**< description file could not be unzipped */
};

/** An open camera. */
typedef struct U3V_DeviceHandle_* U3V_DEVICE_HANDLE;
/** Its control channel. */
typedef struct U3V_ControlHandle_* U3V_CONTROL_HANDLE;
/** Its stream channel. */
typedef struct U3V_StreamHandle_* U3V_STREAM_HANDLE;

#pragma pack(push, 1)

/** One camera as its USB3 Vision device information descriptor describes it; 471 bytes, strings
 * zero-terminated. */
typedef struct U3V_DEVICE_INFO
{
    uint32_t GenCPVersion;     /**< major << 16 | minor */
    uint32_t U3VVersion;       /**< major << 16 | minor */
    char DeviceGUID[13];       /**< 12 hexadecimal digits */
    char VendorName[64];       /**< the manufacturer */
    char ModelName[64];        /**< the model */
    char FamilyName[64];       /**< the family of models */
    char DeviceVersion[64];    /**< the version of the camera */
    char ManufacturerInfo[64]; /**< further text of the manufacturer */
    char SerialNumber[64];     /**< the serial number */
    char UserDefinedName[64];  /**< the name that its user has given it */
    uint8_t SpeedSupport;      /**< bit 0 low, 1 full, 2 high, 3 SuperSpeed */
    uint8_t InUse;             /**< 1 while this library holds the camera open */
} U3V_DEVICE_INFO;

/** One image as its leader describes it; 42 bytes. */
typedef struct IMAGE_HEADER
{
    uint64_t nBlockId;      /**< the camera's count of images */
    uint64_t nTimestamp;    /**< as the camera counts, nanoseconds in the USB3 Vision standard */
    uint32_t nPixelFormat;  /**< PFNC, 32 bit */
    uint32_t nSizeX;        /**< pixels */
    uint32_t nSizeY;        /**< lines */
    uint32_t nOffsetX;      /**< pixels */
    uint32_t nOffsetY;      /**< lines */
    uint16_t nPaddingX;     /**< bytes */
    uint32_t nMissingBytes; /**< bytes an incomplete image lacks, 0 when unknown; not set by the
                               stream channel */
} IMAGE_HEADER;

#pragma pack(pop)

/** Discovery. One per process. Initialises libusb's default context and begins with an empty list.
 * A second open without a close replaces the first, which stays allocated. An error of libusb is
 * not reported: the list then stays empty. */
U3V_API U3V_DiscoveryOpen(void);
/** Frees the list and ends libusb (once no device is left open). INVALID_HANDLE without an open
 * discovery, as from every discovery function and from U3V_OpenDevice. */
U3V_API U3V_DiscoveryClose(void);
/** Looks for cameras on the bus, which takes string and descriptor transfers per camera, and adds
 * new ones to the list; an unplugged camera stays listed. pnCount [out]: cameras listed. */
U3V_API U3V_DiscoveryDevices(uint16_t* pnCount);
/** Copies the record of a listed camera. nIndex [in] counts from 1; outside of the list the answer
 * is DEVICE_NOT_FOUND and pInfo [out] is not written. */
U3V_API U3V_GetDeviceInfo(uint16_t nIndex, U3V_DEVICE_INFO* pInfo);

/** Device. sGUID [in]: exactly the listed camera's DeviceGUID. phDevice [out] is written before
 * anything can fail and has to be closed after a failure too. SUCCESS, DEVICE_NOT_FOUND,
 * OPEN_FAILED, or a libusb code cut to 16 bits. */
U3V_API U3V_OpenDevice(const char* sGUID, U3V_DEVICE_HANDLE* phDevice);
/** Closes the camera. Its control and stream handles must be closed before. */
U3V_API U3V_CloseDevice(U3V_DEVICE_HANDLE hDevice);

/** Control channel. Claims the interface (detaching a kernel driver), reads the bootstrap registers
 * and clears the device configuration. phControl [out] as phDevice above. SUCCESS, CLAIM_FAILED, or
 * the status of the failing register access, after which the channel can be used nevertheless. */
U3V_API U3V_OpenControl(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE* phControl);
/** Releases the interfaces. The late answer to a command that timed out is received and discarded
 * first, which takes up to 100 ms if none comes. */
U3V_API U3V_CloseControl(U3V_CONTROL_HANDLE hControl);
/** One exchange each; concurrent ones queue. nLength [in], bytes: 0..1012 read, 0..1024 written;
 * otherwise, and for a null pointer with a length, GENCP_INVALID_PARAMETER without any traffic.
 * NOT_OPEN before a successful claim; GENCP_MSG_TIMEOUT for every transfer failure, and for a write
 * that stays pending (1000 acknowledges or 60 s); GENCP_INVALID_HEADER, BAD_PREFIX, BAD_ACK_ID,
 * BAD_REQUEST_ID for a wrong acknowledge; else the camera's own status. pDestination [out] is
 * written on success only. */
U3V_API U3V_ReadMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                    void* pDestination);
/** See U3V_ReadMem. pSource [in] is read only. */
U3V_API U3V_WriteMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                     const void* pSource);
/** pnMilliseconds [out]: as the camera names it; 3000 before it was asked. */
U3V_API U3V_MaximumDeviceResponseTime(U3V_CONTROL_HANDLE hControl, uint32_t* pnMilliseconds);

/** Stream channel. Claims the stream interface and locates the streaming registers; device and
 * control stay the caller's and must outlive it. phStream [out] as phDevice above. nArgument [in]
 * is stored only. SUCCESS, NO_STREAM_INTERFACE, CLAIM_FAILED, or a register access's status. */
U3V_API U3V_OpenStream(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE hControl,
                       U3V_STREAM_HANDLE* phStream, uint32_t nArgument);
/** Also ends a running acquisition, waiting for its transfer (up to 5 s). */
U3V_API U3V_CloseStream(U3V_STREAM_HANDLE hStream);
/** Programs the camera, enables the stream and starts to receive. nImagesToAcquire [in]: streaming
 * ends by itself after so many images. STREAM_NOT_OPEN, a register access's status, or a libusb
 * code cut to 16 bits (0xFFF5: no transfer). After a libusb code the camera sends images
 * that nobody receives until U3V_AcquisitionStop. A running acquisition is ended first. */
U3V_API U3V_AcquisitionStart(U3V_STREAM_HANDLE hStream, uint32_t nImagesToAcquire);
/** Ends streaming: waits for the transfer in flight (up to 3 s, in full when streaming had already
 * ended, and up to 5 s when the bus does not answer) and switches the camera off. Images
 * not yet read are dropped. Outputs [out] are not written when nothing was acquiring (SUCCESS)
 * or the camera refuses (its status; the call can be repeated). The lost count is always 0. */
U3V_API U3V_AcquisitionStop(U3V_STREAM_HANDLE hStream, uint64_t* pnImagesAcquired,
                            uint64_t* pnLostCount);
/** Waits up to nTimeout [in], ms, for the next image and copies it. pDestination [out] must have
 * room for the payload size that the camera required at start. IMAGE_TIMEOUT when none came. A
 * reader slower than the camera is answered once per image, with newer content where it was
 * overtaken. */
U3V_API U3V_GetImage(U3V_STREAM_HANDLE hStream, void* pDestination, uint32_t nTimeout,
                     IMAGE_HEADER* pHeader);
/** Bytes of one payload transfer (1 MiB unless set); effective from the next start. */
U3V_API U3V_GetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t* pnTransferSize);
/** See U3V_GetTransferSize. nTransferSize [in] in bytes. */
U3V_API U3V_SetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t nTransferSize);
/** Images kept between camera and reader (4 unless set, at most 65536); from the next start. */
U3V_API U3V_GetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t* pnBufferCount);
/** See U3V_GetBufferCount. */
U3V_API U3V_SetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t nBufferCount);

#endif
