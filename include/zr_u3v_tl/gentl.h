/**
 * @file
 * GenICam GenTL C interface of the ZRK-ORVANE USB3 Vision producer.
 *
 * Types, constants and functions of the GenTL standard, usable from C and C++. The producer answers
 * at GenTL 1.3; later functions and commands are declared with the standard's numbers so that one
 * header serves every consumer, and answer GC_ERR_NOT_IMPLEMENTED.
 *
 * What is written here is the answer of zr_u3v_tl.cti. Functions marked "GenTL 1.6" are exported by
 * zr_u3v_standard.cti only.
 *
 * **Handles** are compared before they are followed: NULL, a closed one and one of another kind
 * answer GC_ERR_INVALID_HANDLE, and nothing happens. A handle ends with its object or with what
 * that was opened through. A variable that is to receive one starts as NULL.
 *
 * **Information queries** (functions with iInfoCmd) share one rule. piType [out] receives an
 * INFO_DATATYPE. piSize [in, out] is the room in bytes and then the size of the answer; it is set
 * anew for every call. With pBuffer [out] NULL only type and size are told. Statuses:
 * GC_ERR_BUFFER_TOO_SMALL, with the size needed in *piSize; GC_ERR_INVALID_PARAMETER for a NULL
 * piType or piSize; GC_ERR_NOT_IMPLEMENTED for a command that is not served. Unless it succeeds
 * pBuffer is left as it was or cleared.
 *
 * **Every function** may answer, beside what is named at it, GC_ERR_NOT_INITIALIZED before
 * GCInitLib, GC_ERR_INVALID_HANDLE as above, GC_ERR_OUT_OF_MEMORY and GC_ERR_ERROR. Each failure
 * becomes the thread's last error. Any function may be called from any thread at any time; closing
 * releases whoever waits inside what is closed.
 */
#ifndef ZR_U3V_TL_GENTL_H
#define ZR_U3V_TL_GENTL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
/** C linkage in both languages. */
#define GC_EXTERN_C extern "C"
#else
#define GC_EXTERN_C extern
#endif

/** The calling convention: the platform's. */
#define GC_CALLTYPE
/** Seen from outside of the library. */
#define GC_EXPORT __attribute__((visibility("default")))
/** In front of every exported function. */
#define GC_API GC_EXTERN_C GC_EXPORT GC_ERROR GC_CALLTYPE

#ifdef __cplusplus
/** A truth value of one byte. */
typedef bool bool8_t;
#else
typedef uint8_t bool8_t;
#endif

/** A value of GC_ERROR_LIST. */
typedef int32_t GC_ERROR;
/** What a call answers. GCGetLastError tells it once more, with its name. */
enum GC_ERROR_LIST
{
    GC_ERR_SUCCESS = 0,               /**< it is done */
    GC_ERR_ERROR = -1001,             /**< for no reason that has a code of its own */
    GC_ERR_NOT_INITIALIZED = -1002,   /**< before GCInitLib, or the object is not open */
    GC_ERR_NOT_IMPLEMENTED = -1003,   /**< a function, command, address or flag that there is not */
    GC_ERR_RESOURCE_IN_USE = -1004,   /**< open, registered or queued already */
    GC_ERR_ACCESS_DENIED = -1005,     /**< the camera is not open */
    GC_ERR_INVALID_HANDLE = -1006,    /**< NULL, closed, or of another kind */
    GC_ERR_INVALID_ID = -1007,        /**< not in the list */
    GC_ERR_NO_DATA = -1008,           /**< not answered by this producer */
    GC_ERR_INVALID_PARAMETER = -1009, /**< NULL, or a value that is none */
    GC_ERR_IO = -1010,                /**< the camera or the bus refused a register */
    GC_ERR_TIMEOUT = -1011,           /**< nothing came in time */
    GC_ERR_ABORT = -1012,             /**< a wait was ended by somebody */
    GC_ERR_INVALID_BUFFER = -1013,    /**< no buffer is announced */
    GC_ERR_NOT_AVAILABLE = -1014,     /**< the information is not there now */
    GC_ERR_INVALID_ADDRESS = -1015,   /**< not answered by this producer */
    GC_ERR_BUFFER_TOO_SMALL = -1016,  /**< the size needed is in *piSize */
    GC_ERR_INVALID_INDEX = -1017,     /**< beyond the end of a list */
    GC_ERR_PARSING_CHUNK_DATA = -1018, /**< not answered by this producer */
    GC_ERR_INVALID_VALUE = -1019,      /**< not answered by this producer */
    GC_ERR_RESOURCE_EXHAUSTED = -1020, /**< no thread could be started */
    GC_ERR_OUT_OF_MEMORY = -1021,      /**< out of memory */
    GC_ERR_BUSY = -1022,               /**< not while acquiring, or not while queued */
    GC_ERR_AMBIGUOUS = -1023,          /**< not answered by this producer */
    GC_ERR_CUSTOM_ID = -10000,         /**< producers' own codes lie below */
};

/** A value of INFO_DATATYPE_LIST. */
typedef int32_t INFO_DATATYPE;
/** The type of an information query's answer. */
enum INFO_DATATYPE_LIST
{
    INFO_DATATYPE_UNKNOWN = 0,      /**< none */
    INFO_DATATYPE_STRING = 1,       /**< text with its zero */
    INFO_DATATYPE_STRINGLIST = 2,   /**< texts, each with its zero, and one more zero */
    INFO_DATATYPE_INT16 = 3,        /**< int16_t */
    INFO_DATATYPE_UINT16 = 4,       /**< uint16_t */
    INFO_DATATYPE_INT32 = 5,        /**< int32_t */
    INFO_DATATYPE_UINT32 = 6,       /**< uint32_t */
    INFO_DATATYPE_INT64 = 7,        /**< int64_t */
    INFO_DATATYPE_UINT64 = 8,       /**< uint64_t */
    INFO_DATATYPE_FLOAT64 = 9,      /**< double */
    INFO_DATATYPE_PTR = 10,         /**< void* */
    INFO_DATATYPE_BOOL8 = 11,       /**< bool8_t */
    INFO_DATATYPE_SIZET = 12,       /**< size_t */
    INFO_DATATYPE_BUFFER = 13,      /**< bytes */
    INFO_DATATYPE_PTRDIFF = 14,     /**< ptrdiff_t */
    INFO_DATATYPE_CUSTOM_ID = 1000, /**< producers' own types lie above */
};

/** A value of TL_CHAR_ENCODING_LIST. */
typedef int32_t TL_CHAR_ENCODING;
/** How the producer's texts are encoded. */
enum TL_CHAR_ENCODING_LIST
{
    TL_CHAR_ENCODING_ASCII = 0, /**< ASCII: this producer's */
    TL_CHAR_ENCODING_UTF8 = 1,  /**< UTF-8 */
};

/** A value of TL_INFO_CMD_LIST. */
typedef int32_t TL_INFO_CMD;
/** What GCGetInfo and TLGetInfo can be asked. */
enum TL_INFO_CMD_LIST
{
    TL_INFO_ID = 0,               /**< STRING */
    TL_INFO_VENDOR = 1,           /**< STRING */
    TL_INFO_MODEL = 2,            /**< STRING */
    TL_INFO_VERSION = 3,          /**< STRING */
    TL_INFO_TLTYPE = 4,           /**< STRING: "U3V" */
    TL_INFO_NAME = 5,             /**< STRING: the file's name */
    TL_INFO_PATHNAME = 6,         /**< STRING: the file's path */
    TL_INFO_DISPLAYNAME = 7,      /**< STRING */
    TL_INFO_CHAR_ENCODING = 8,    /**< INT32: TL_CHAR_ENCODING_LIST */
    TL_INFO_GENTL_VER_MAJOR = 9,  /**< UINT32: 1 */
    TL_INFO_GENTL_VER_MINOR = 10, /**< UINT32: 3 */
    TL_INFO_CUSTOM_ID = 1000,     /**< producers' own commands lie above; none here */
};

/** A value of INTERFACE_INFO_CMD_LIST. */
typedef int32_t INTERFACE_INFO_CMD;
/** What IFGetInfo and TLGetInterfaceInfo can be asked. */
enum INTERFACE_INFO_CMD_LIST
{
    INTERFACE_INFO_ID = 0,           /**< STRING */
    INTERFACE_INFO_DISPLAYNAME = 1,  /**< STRING */
    INTERFACE_INFO_TLTYPE = 2,       /**< STRING: "U3V" */
    INTERFACE_INFO_CUSTOM_ID = 1000, /**< producers' own commands lie above; none here */
};

/** A value of DEVICE_ACCESS_FLAGS_LIST. */
typedef int32_t DEVICE_ACCESS_FLAGS;
/** How IFOpenDevice is to open a camera. */
enum DEVICE_ACCESS_FLAGS_LIST
{
    DEVICE_ACCESS_UNKNOWN = 0,      /**< refused */
    DEVICE_ACCESS_NONE = 1,         /**< refused */
    DEVICE_ACCESS_READONLY = 2,     /**< accepted */
    DEVICE_ACCESS_CONTROL = 3,      /**< accepted */
    DEVICE_ACCESS_EXCLUSIVE = 4,    /**< accepted */
    DEVICE_ACCESS_CUSTOM_ID = 1000, /**< producers' own flags lie above; none here */
};

/** A value of DEVICE_ACCESS_STATUS_LIST. */
typedef int32_t DEVICE_ACCESS_STATUS;
/** Whether a camera can be opened, or how it is open. */
enum DEVICE_ACCESS_STATUS_LIST
{
    DEVICE_ACCESS_STATUS_UNKNOWN = 0,        /**< nobody knows */
    DEVICE_ACCESS_STATUS_READWRITE = 1,      /**< free */
    DEVICE_ACCESS_STATUS_READONLY = 2,       /**< to be read only */
    DEVICE_ACCESS_STATUS_NOACCESS = 3,       /**< somebody else has it */
    DEVICE_ACCESS_STATUS_BUSY = 4,           /**< not answered by this producer */
    DEVICE_ACCESS_STATUS_OPEN_READWRITE = 5, /**< not answered by this producer */
    DEVICE_ACCESS_STATUS_OPEN_READONLY = 6,  /**< not answered by this producer */
    DEVICE_ACCESS_STATUS_CUSTOM_ID = 1000,   /**< producers' own lie above; none here */
};

/** A value of DEVICE_INFO_CMD_LIST. */
typedef int32_t DEVICE_INFO_CMD;
/** What IFGetDeviceInfo and DevGetInfo can be asked. */
enum DEVICE_INFO_CMD_LIST
{
    DEVICE_INFO_ID = 0,                  /**< STRING: the GUID, 12 digits */
    DEVICE_INFO_VENDOR = 1,              /**< STRING */
    DEVICE_INFO_MODEL = 2,               /**< STRING */
    DEVICE_INFO_TLTYPE = 3,              /**< STRING: "U3V" */
    DEVICE_INFO_DISPLAYNAME = 4,         /**< STRING */
    DEVICE_INFO_ACCESS_STATUS = 5,       /**< INT32: DEVICE_ACCESS_STATUS_LIST */
    DEVICE_INFO_USER_DEFINED_NAME = 6,   /**< STRING */
    DEVICE_INFO_SERIAL_NUMBER = 7,       /**< STRING */
    DEVICE_INFO_VERSION = 8,             /**< STRING */
    DEVICE_INFO_TIMESTAMP_FREQUENCY = 9, /**< not served */
    DEVICE_INFO_CUSTOM_ID = 1000,        /**< producers' own commands lie above; none here */
};

/** A value of ACQ_STOP_FLAGS_LIST. */
typedef int32_t ACQ_STOP_FLAGS;
/** How DSStopAcquisition is to stop. */
enum ACQ_STOP_FLAGS_LIST
{
    ACQ_STOP_FLAGS_DEFAULT = 0,      /**< when the transfer in flight has ended */
    ACQ_STOP_FLAGS_KILL = 1,         /**< the same */
    ACQ_STOP_FLAGS_CUSTOM_ID = 1000, /**< producers' own flags lie above; refused */
};

/** A value of ACQ_START_FLAGS_LIST. */
typedef int32_t ACQ_START_FLAGS;
/** How DSStartAcquisition is to start; not looked at. */
enum ACQ_START_FLAGS_LIST
{
    ACQ_START_FLAGS_DEFAULT = 0,      /**< there is no other */
    ACQ_START_FLAGS_CUSTOM_ID = 1000, /**< producers' own flags lie above; none here */
};

/** A value of ACQ_QUEUE_TYPE_LIST. */
typedef int32_t ACQ_QUEUE_TYPE;
/** What DSFlushQueue is to do. The input queue waits for images, the output queue for EventGetData.
 */
enum ACQ_QUEUE_TYPE_LIST
{
    ACQ_QUEUE_INPUT_TO_OUTPUT = 0,   /**< delivers what waits for images, as it is */
    ACQ_QUEUE_OUTPUT_DISCARD = 1,    /**< drops what waits for EventGetData */
    ACQ_QUEUE_ALL_TO_INPUT = 2,      /**< drops the output and queues what is not queued */
    ACQ_QUEUE_UNQUEUED_TO_INPUT = 3, /**< queues what is not queued */
    ACQ_QUEUE_ALL_DISCARD = 4,       /**< empties both */
    ACQ_QUEUE_CUSTOM_ID = 1000,      /**< producers' own lie above; none here */
};

/** A value of STREAM_INFO_CMD_LIST. */
typedef int32_t STREAM_INFO_CMD;
/** What DSGetInfo can be asked. */
enum STREAM_INFO_CMD_LIST
{
    STREAM_INFO_ID = 0,                         /**< STRING */
    STREAM_INFO_NUM_DELIVERED = 1,              /**< UINT64: images so far */
    STREAM_INFO_NUM_UNDERRUN = 2,               /**< UINT64: always 0 */
    STREAM_INFO_NUM_ANNOUNCED = 3,              /**< SIZET */
    STREAM_INFO_NUM_QUEUED = 4,                 /**< SIZET: in the input queue */
    STREAM_INFO_NUM_AWAIT_DELIVERY = 5,         /**< SIZET: in the output queue */
    STREAM_INFO_NUM_STARTED = 6,                /**< not served */
    STREAM_INFO_PAYLOAD_SIZE = 7,               /**< not served */
    STREAM_INFO_IS_GRABBING = 8,                /**< BOOL8: always false */
    STREAM_INFO_DEFINES_PAYLOADSIZE = 9,        /**< BOOL8: false */
    STREAM_INFO_TLTYPE = 10,                    /**< STRING: "U3V" */
    STREAM_INFO_NUM_CHUNKS_MAX = 11,            /**< not served */
    STREAM_INFO_BUF_ANNOUNCE_MIN = 12,          /**< SIZET: 1 */
    STREAM_INFO_BUF_ALIGNMENT = 13,             /**< not served */
    STREAM_INFO_FLOW_TABLE = 14,                /**< not served */
    STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR = 15, /**< not served */
    STREAM_INFO_CUSTOM_ID = 1000,               /**< producers' own commands lie above; none here */
};

/** A value of BUFFER_INFO_CMD_LIST. */
typedef int32_t BUFFER_INFO_CMD;
/** What DSGetBufferInfo can be asked. Lines have no padding; the image begins where the buffer
 * does. */
enum BUFFER_INFO_CMD_LIST
{
    BUFFER_INFO_BASE = 0,          /**< PTR: the memory */
    BUFFER_INFO_SIZE = 1,          /**< SIZET: its bytes */
    BUFFER_INFO_USER_PTR = 2,      /**< PTR: as announced */
    BUFFER_INFO_TIMESTAMP = 3,     /**< UINT64: the camera's, in ns by the USB3 Vision standard */
    BUFFER_INFO_NEW_DATA = 4,      /**< BOOL8: an image since it was queued */
    BUFFER_INFO_IS_QUEUED = 5,     /**< BOOL8 */
    BUFFER_INFO_IS_ACQUIRING = 6,  /**< BOOL8: being filled */
    BUFFER_INFO_IS_INCOMPLETE = 7, /**< BOOL8: something of the image is missing */
    BUFFER_INFO_TLTYPE = 8,        /**< STRING: "GEV", whatever the bus */
    BUFFER_INFO_SIZE_FILLED = 9,   /**< SIZET: the buffer's size once an image has come */
    BUFFER_INFO_WIDTH = 10,        /**< SIZET: pixels; not served before the first image */
    BUFFER_INFO_HEIGHT = 11,       /**< SIZET: lines; likewise */
    BUFFER_INFO_XOFFSET = 12,      /**< not served */
    BUFFER_INFO_YOFFSET = 13,      /**< not served */
    BUFFER_INFO_XPADDING = 14,     /**< not served */
    BUFFER_INFO_YPADDING = 15,     /**< not served */
    BUFFER_INFO_FRAMEID = 16,      /**< UINT64: the block id; a gap is a lost image */
    BUFFER_INFO_IMAGEPRESENT = 17, /**< not served */
    BUFFER_INFO_IMAGEOFFSET = 18,  /**< not served */
    BUFFER_INFO_PAYLOADTYPE = 19,  /**< SIZET: PAYLOAD_TYPE_IMAGE */
    BUFFER_INFO_PIXELFORMAT = 20,  /**< UINT64: PFNC, 32 bits; not served before the first image */
    BUFFER_INFO_PIXELFORMAT_NAMESPACE = 21,      /**< not served */
    BUFFER_INFO_DELIVERED_IMAGEHEIGHT = 22,      /**< not served */
    BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE = 23, /**< not served */
    BUFFER_INFO_CHUNKLAYOUTID = 24,              /**< not served */
    BUFFER_INFO_FILENAME = 25,                   /**< not served */
    BUFFER_INFO_PIXEL_ENDIANNESS = 26,           /**< not served */
    BUFFER_INFO_DATA_SIZE = 27,                  /**< not served */
    BUFFER_INFO_TIMESTAMP_NS = 28,               /**< not served */
    BUFFER_INFO_DATA_LARGER_THAN_BUFFER = 29,    /**< not served */
    BUFFER_INFO_CONTAINS_CHUNKDATA = 30,         /**< not served */
    BUFFER_INFO_IS_COMPOSITE = 31,               /**< not served */
    BUFFER_INFO_CUSTOM_ID = 1000, /**< producers' own commands lie above; none here */
};

/** A value of BUFFER_PART_INFO_CMD_LIST. */
typedef int32_t BUFFER_PART_INFO_CMD;
/** Commands of DSGetBufferPartInfo, which is not served. */
enum BUFFER_PART_INFO_CMD_LIST
{
    BUFFER_PART_INFO_BASE = 0,                   /**< base */
    BUFFER_PART_INFO_DATA_SIZE = 1,              /**< data size */
    BUFFER_PART_INFO_DATA_TYPE = 2,              /**< data type */
    BUFFER_PART_INFO_DATA_FORMAT = 3,            /**< data format */
    BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE = 4,  /**< data format namespace */
    BUFFER_PART_INFO_WIDTH = 5,                  /**< width */
    BUFFER_PART_INFO_HEIGHT = 6,                 /**< height */
    BUFFER_PART_INFO_XOFFSET = 7,                /**< xoffset */
    BUFFER_PART_INFO_YOFFSET = 8,                /**< yoffset */
    BUFFER_PART_INFO_XPADDING = 9,               /**< xpadding */
    BUFFER_PART_INFO_SOURCE_ID = 10,             /**< source id */
    BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT = 11, /**< delivered imageheight */
    BUFFER_PART_INFO_REGION_ID = 12,             /**< region id */
    BUFFER_PART_INFO_DATA_PURPOSE_ID = 13,       /**< data purpose id */
    BUFFER_PART_INFO_CUSTOM_ID = 1000,           /**< producers' own lie above; none here */
};

/** A value of FLOW_INFO_CMD_LIST. */
typedef int32_t FLOW_INFO_CMD;
/** Commands of DSGetFlowInfo; GenTL 1.6. */
enum FLOW_INFO_CMD_LIST
{
    FLOW_INFO_SIZE = 0,         /**< SIZET: bytes of the flow */
    FLOW_INFO_CUSTOM_ID = 1000, /**< producers' own commands lie above; none here */
};

/** A value of SEGMENT_INFO_CMD_LIST. */
typedef int32_t SEGMENT_INFO_CMD;
/** Commands of DSGetBufferSegmentInfo; GenTL 1.6. */
enum SEGMENT_INFO_CMD_LIST
{
    SEGMENT_INFO_BASE = 0,          /**< PTR: the segment's memory */
    SEGMENT_INFO_SIZE = 1,          /**< SIZET: its bytes */
    SEGMENT_INFO_IS_INCOMPLETE = 2, /**< BOOL8: something of its data is missing */
    SEGMENT_INFO_SIZE_FILLED = 3,   /**< SIZET: bytes that have come */
    SEGMENT_INFO_DATA_SIZE = 4,     /**< SIZET: bytes that were to come */
    SEGMENT_INFO_CUSTOM_ID = 1000,  /**< producers' own commands lie above; none here */
};

/** A value of PAYLOADTYPE_INFO_IDS. */
typedef int32_t PAYLOADTYPE_INFO_ID;
/** What a buffer holds. */
enum PAYLOADTYPE_INFO_IDS
{
    PAYLOAD_TYPE_UNKNOWN = 0,         /**< unknown */
    PAYLOAD_TYPE_IMAGE = 1,           /**< an image: this producer's answer */
    PAYLOAD_TYPE_RAW_DATA = 2,        /**< raw data */
    PAYLOAD_TYPE_FILE = 3,            /**< file */
    PAYLOAD_TYPE_CHUNK_DATA = 4,      /**< chunk data */
    PAYLOAD_TYPE_JPEG = 5,            /**< jpeg */
    PAYLOAD_TYPE_JPEG2000 = 6,        /**< jpeg2000 */
    PAYLOAD_TYPE_H264 = 7,            /**< h264 */
    PAYLOAD_TYPE_CHUNK_ONLY = 8,      /**< chunk only */
    PAYLOAD_TYPE_DEVICE_SPECIFIC = 9, /**< device specific */
    PAYLOAD_TYPE_MULTI_PART = 10,     /**< multi part */
    PAYLOAD_TYPE_GENDC = 11,          /**< gendc */
    PAYLOAD_TYPE_CUSTOM_ID = 1000,    /**< producers' own lie above; none here */
};

/** A value of PIXELFORMAT_NAMESPACE_IDS. */
typedef int32_t PIXELFORMAT_NAMESPACE_ID;
/** Where a pixel format's number comes from; this producer's are PFNC, 32 bits. */
enum PIXELFORMAT_NAMESPACE_IDS
{
    PIXELFORMAT_NAMESPACE_UNKNOWN = 0,      /**< unknown */
    PIXELFORMAT_NAMESPACE_GEV = 1,          /**< gev */
    PIXELFORMAT_NAMESPACE_IIDC = 2,         /**< iidc */
    PIXELFORMAT_NAMESPACE_PFNC_16BIT = 3,   /**< pfnc 16bit */
    PIXELFORMAT_NAMESPACE_PFNC_32BIT = 4,   /**< pfnc 32bit */
    PIXELFORMAT_NAMESPACE_CUSTOM_ID = 1000, /**< producers' own lie above; none here */
};

/** A value of PIXELENDIANNESS_IDS. */
typedef int32_t PIXELENDIANNESS_ID;
/** The order of a sample's bytes; USB3 Vision cameras send little endian. */
enum PIXELENDIANNESS_IDS
{
    PIXELENDIANNESS_UNKNOWN = 0, /**< unknown */
    PIXELENDIANNESS_LITTLE = 1,  /**< little */
    PIXELENDIANNESS_BIG = 2,     /**< big */
};

/** A value of PARTDATATYPE_IDS. */
typedef int32_t PARTDATATYPE_ID;
/** What a part of a buffer holds; of DSGetBufferPartInfo, which is not served. */
enum PARTDATATYPE_IDS
{
    PART_DATATYPE_UNKNOWN = 0,             /**< unknown */
    PART_DATATYPE_2D_IMAGE = 1,            /**< 2d image */
    PART_DATATYPE_2D_PLANE_BIPLANAR = 2,   /**< 2d plane biplanar */
    PART_DATATYPE_2D_PLANE_TRIPLANAR = 3,  /**< 2d plane triplanar */
    PART_DATATYPE_2D_PLANE_QUADPLANAR = 4, /**< 2d plane quadplanar */
    PART_DATATYPE_3D_IMAGE = 5,            /**< 3d image */
    PART_DATATYPE_3D_PLANE_BIPLANAR = 6,   /**< 3d plane biplanar */
    PART_DATATYPE_3D_PLANE_TRIPLANAR = 7,  /**< 3d plane triplanar */
    PART_DATATYPE_3D_PLANE_QUADPLANAR = 8, /**< 3d plane quadplanar */
    PART_DATATYPE_CONFIDENCE_MAP = 9,      /**< confidence map */
    PART_DATATYPE_JPEG = 10,               /**< jpeg */
    PART_DATATYPE_JPEG2000 = 11,           /**< jpeg2000 */
    PART_DATATYPE_CUSTOM_ID = 1000,        /**< producers' own lie above; none here */
};

/** A value of PORT_INFO_CMD_LIST. */
typedef int32_t PORT_INFO_CMD;
/** What GCGetPortInfo can be asked. */
enum PORT_INFO_CMD_LIST
{
    PORT_INFO_ID = 0,            /**< STRING */
    PORT_INFO_VENDOR = 1,        /**< STRING */
    PORT_INFO_MODEL = 2,         /**< STRING */
    PORT_INFO_TLTYPE = 3,        /**< STRING */
    PORT_INFO_MODULE = 4,        /**< STRING: "TLSystem" and the like */
    PORT_INFO_LITTLE_ENDIAN = 5, /**< BOOL8 */
    PORT_INFO_BIG_ENDIAN = 6,    /**< BOOL8 */
    PORT_INFO_ACCESS_READ = 7,   /**< BOOL8 */
    PORT_INFO_ACCESS_WRITE = 8,  /**< BOOL8 */
    PORT_INFO_ACCESS_NA = 9,     /**< BOOL8 */
    PORT_INFO_ACCESS_NI = 10,    /**< BOOL8 */
    PORT_INFO_VERSION = 11,      /**< STRING */
    PORT_INFO_PORTNAME = 12,     /**< STRING: as the description file calls it */
    PORT_INFO_CUSTOM_ID = 1000,  /**< producers' own commands lie above; none here */
};

/** A value of URL_SCHEME_IDS. */
typedef int32_t URL_SCHEME_ID;
/** Where a description file can be. */
enum URL_SCHEME_IDS
{
    URL_SCHEME_LOCAL = 0,        /**< in the port's registers: this producer's */
    URL_SCHEME_HTTP = 1,         /**< on a server */
    URL_SCHEME_FILE = 2,         /**< in the file system */
    URL_SCHEME_CUSTOM_ID = 1000, /**< producers' own lie above; none here */
};

/** A value of URL_INFO_CMD_LIST. */
typedef int32_t URL_INFO_CMD;
/** What GCGetPortURLInfo can be asked. */
enum URL_INFO_CMD_LIST
{
    URL_INFO_URL = 0,                   /**< STRING */
    URL_INFO_SCHEMA_VER_MAJOR = 1,      /**< not served */
    URL_INFO_SCHEMA_VER_MINOR = 2,      /**< not served */
    URL_INFO_FILE_VER_MAJOR = 3,        /**< not served */
    URL_INFO_FILE_VER_MINOR = 4,        /**< not served */
    URL_INFO_FILE_VER_SUBMINOR = 5,     /**< not served */
    URL_INFO_FILE_SHA1_HASH = 6,        /**< not served */
    URL_INFO_FILE_REGISTER_ADDRESS = 7, /**< not served */
    URL_INFO_FILE_SIZE = 8,             /**< not served */
    URL_INFO_SCHEME = 9,                /**< not served */
    URL_INFO_FILENAME = 10,             /**< not served */
    URL_INFO_CUSTOM_ID = 1000,          /**< producers' own commands lie above; none here */
};

/** A value of EVENT_TYPE_LIST. */
typedef int32_t EVENT_TYPE;
/** Events that a module can have. */
enum EVENT_TYPE_LIST
{
    EVENT_ERROR = 0,              /**< of an interface */
    EVENT_NEW_BUFFER = 1,         /**< of a data stream: an image */
    EVENT_FEATURE_INVALIDATE = 2, /**< not served */
    EVENT_FEATURE_CHANGE = 3,     /**< not served */
    EVENT_REMOTE_DEVICE = 4,      /**< of a device; none ever comes */
    EVENT_MODULE = 5,             /**< not served */
    EVENT_CUSTOM_ID = 1000,       /**< producers' own lie above; none here */
};

/** A value of EVENT_INFO_CMD_LIST. */
typedef int32_t EVENT_INFO_CMD;
/** What EventGetInfo can be asked. */
enum EVENT_INFO_CMD_LIST
{
    EVENT_EVENT_TYPE = 0,         /**< INT32: EVENT_TYPE_LIST */
    EVENT_NUM_IN_QUEUE = 1,       /**< SIZET: entries that wait */
    EVENT_NUM_FIRED = 2,          /**< not served */
    EVENT_SIZE_MAX = 3,           /**< SIZET: bytes of a record */
    EVENT_INFO_DATA_SIZE_MAX = 4, /**< SIZET: bytes of the longest answer of EventGetDataInfo */
    EVENT_INFO_CUSTOM_ID = 1000,  /**< producers' own commands lie above; none here */
};

/** A value of EVENT_DATA_INFO_CMD_LIST. */
typedef int32_t EVENT_DATA_INFO_CMD;
/** What EventGetDataInfo can be asked. */
enum EVENT_DATA_INFO_CMD_LIST
{
    EVENT_DATA_ID = 0,    /**< of a new buffer PTR: its handle; of an error INT32: its code */
    EVENT_DATA_VALUE = 1, /**< of a new buffer PTR: the user pointer */
    EVENT_DATA_NUMID = 2, /**< not served */
    EVENT_DATA_CUSTOM_ID = 1000, /**< producers' own commands lie above; none here */
};

/** The System. */
typedef void* TL_HANDLE;
/** An interface. */
typedef void* IF_HANDLE;
/** An open camera, as the producer sees it. */
typedef void* DEV_HANDLE;
/** A data stream. */
typedef void* DS_HANDLE;
/** Registers: of a camera (DevGetPort), or any other module. */
typedef void* PORT_HANDLE;
/** An announced buffer. */
typedef void* BUFFER_HANDLE;
/** A module, as a source of events. */
typedef void* EVENTSRC_HANDLE;
/** A registered event. */
typedef void* EVENT_HANDLE;

/** No handle. */
#define GENTL_INVALID_HANDLE NULL
/** Without a limit as a number of images; as a time-out see EventGetData. */
#define GENTL_INFINITE UINT64_C(0xFFFFFFFFFFFFFFFF)

#pragma pack(push, 1)

/** What EVENT_NEW_BUFFER carries. */
typedef struct S_EVENT_NEW_BUFFER
{
    BUFFER_HANDLE BufferHandle; /**< the filled buffer: the caller's until DSQueueBuffer */
    void* pUserPointer;         /**< as announced */
} EVENT_NEW_BUFFER_DATA;

/** One access of GCReadPortStacked and GCWritePortStacked. */
typedef struct S_PORT_REGISTER_STACK_ENTRY
{
    uint64_t Address; /**< of the register */
    void* pBuffer;    /**< [out] when reading, [in] when writing */
    size_t Size;      /**< bytes */
} PORT_REGISTER_STACK_ENTRY;

/** A chunk, of DSGetBufferChunkData, which is not served. */
typedef struct S_SINGLE_CHUNK_DATA
{
    uint64_t ChunkID;      /**< as the description file has it */
    ptrdiff_t ChunkOffset; /**< bytes from the start of the buffer */
    size_t ChunkLength;    /**< bytes */
} SINGLE_CHUNK_DATA;

/** One question of DSGetBufferInfoStacked; GenTL 1.6. */
typedef struct S_DS_BUFFER_INFO_STACKED
{
    BUFFER_INFO_CMD iInfoCmd; /**< [in] what is asked */
    INFO_DATATYPE iType;      /**< [out] the answer's type */
    void* pBuffer;            /**< [out] the answer; NULL asks for type and size only */
    size_t iSize;             /**< [in] room in bytes, [out] bytes of the answer */
    GC_ERROR iResult;         /**< [out] how this question went */
} DS_BUFFER_INFO_STACKED;

/** One question of DSGetBufferPartInfoStacked; GenTL 1.6. */
typedef struct S_DS_BUFFER_PART_INFO_STACKED
{
    uint32_t iPartIndex;           /**< [in] of the part, from 0 */
    BUFFER_PART_INFO_CMD iInfoCmd; /**< [in] what is asked */
    GC_ERROR iResult;              /**< [out] how this question went */
    INFO_DATATYPE iType;           /**< [out] the answer's type */
    void* pBuffer;                 /**< [out] the answer; NULL asks for type and size only */
    size_t iSize;                  /**< [in] room in bytes, [out] bytes of the answer */
} DS_BUFFER_PART_INFO_STACKED;

#pragma pack(pop)

/** Asks the producer as a whole, without a System handle: an information query of TL_INFO_CMD_LIST.
 */
GC_API GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** The last failure of a call that this thread has made; a success does not clear it.
 *
 * piErrorCode [out] is the code. sErrText [out] receives the code's name with its zero ("No Error"
 * before any failure; empty for codes below GC_ERR_BUSY), NULL asks for the size only. piSize [in,
 * out]: room in bytes; then bytes needed.
 *
 * @return GC_ERR_INVALID_PARAMETER for a NULL piErrorCode or piSize; GC_ERR_BUFFER_TOO_SMALL, upon
 * which nothing is written, *piSize included. A failure of this function is not recorded. */
GC_API GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize);

/** Makes the library ready; the first call of all. Once per process, until GCCloseLib.
 *
 * @return GC_ERR_RESOURCE_IN_USE when it is ready already. Before it every other function but
 * GCGetLastError answers GC_ERR_NOT_INITIALIZED. Out of memory, a std::bad_alloc leaves it: there
 * is no library yet that could keep a status. The library is as before, and C programs end. */
GC_API GCInitLib(void);

/** Closes everything that is still open, from the streams up, and ends the library; GCInitLib may
 * follow.
 *
 * Releases every wait in EventGetData (GC_ERR_ABORT) and waits for the calls that are inside.
 * Every handle is invalid afterwards; calls that come meanwhile answer GC_ERR_NOT_INITIALIZED at
 * once. Takes up to a few seconds when cameras stream that do not answer any more. Call it before
 * the process ends or the library is unloaded.
 *
 * Before dlclose, join or stop the threads that may be in a call: one that was released from
 * EventGetData, or answered GC_ERR_NOT_INITIALIZED, still runs the last instructions of the library
 * when this returns. */
GC_API GCCloseLib(void);

/** Reads piSize bytes from address iAddress of a module: of the camera (DevGetPort) or of the
 * producer's own modules, whose handles are ports too.
 *
 * pBuffer [out] and piSize [in, out] in bytes. The camera is read in pieces of 256 bytes, one
 * exchange at a time; a failure leaves the pieces before it in pBuffer. Registers of the
 * producer's modules have one address and one size each; *piSize then becomes the bytes read.
 *
 * @return GC_ERR_INVALID_PARAMETER for a NULL pBuffer or piSize; of the camera GC_ERR_IO (refused,
 * no such register, no answer in time) and GC_ERR_ACCESS_DENIED (not open); of the modules
 * GC_ERR_NOT_IMPLEMENTED for an address they do not have and GC_ERR_BUFFER_TOO_SMALL. */
GC_API GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize);

/** Writes piSize bytes to address iAddress of a module; see GCReadPort.
 *
 * The camera takes at most 1024 bytes in one call. What a register of the producer's modules does
 * not receive reads as zero.
 *
 * @return as GCReadPort. */
GC_API GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize);

/** Where the module's description file is: the first URL, as text with its zero.
 *
 * A URL is "local:name.xml;address;size" (hexadecimal; .zip for an archive), to be read with
 * GCReadPort from the same port.
 *
 * @return as an information query, and GC_ERR_INVALID_INDEX when there is none. */
GC_API GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize);

/** Asks a port about itself: an information query of PORT_INFO_CMD_LIST. */
GC_API GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                     void* pBuffer, size_t* piSize);

/** Begins to collect events of a module.
 *
 * iEventID: EVENT_NEW_BUFFER of a data stream, EVENT_ERROR of an interface, EVENT_REMOTE_DEVICE of
 * a device. phEvent [out] is the event's handle, for EventGetData; it is the producer's and ends
 * with GCUnregisterEvent or with its module.
 *
 * @return GC_ERR_NOT_IMPLEMENTED for any other event; GC_ERR_RESOURCE_IN_USE when it is registered
 * already; GC_ERR_INVALID_PARAMETER for a NULL phEvent. */
GC_API GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent);

/** Ends an event: its waiters are released (GC_ERR_ABORT) and waited for, undelivered entries are
 * dropped.
 *
 * @return GC_ERR_NOT_IMPLEMENTED for an event the module does not have; GC_ERR_NOT_INITIALIZED
 * when it is not registered. */
GC_API GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID);

/** Waits for the next entry of an event and takes it.
 *
 * pBuffer [out] receives the record, for EVENT_NEW_BUFFER an EVENT_NEW_BUFFER_DATA; NULL drops the
 * entry. piSize [in]: room in bytes, at least EVENT_SIZE_MAX. iTimeout in ms, finite: it counts
 * with its low 32 bits as a signed number, so that GENTL_INFINITE does not wait at all. Several
 * threads may wait for one event; one whose entry another thread has taken succeeds with pBuffer
 * untouched: set the record to zero before; or it answers GC_ERR_TIMEOUT before its time.
 *
 * @return GC_ERR_TIMEOUT; GC_ERR_ABORT after EventKill or when the event has ended;
 * GC_ERR_BUFFER_TOO_SMALL, with the size needed in *piSize and no entry taken;
 * GC_ERR_INVALID_PARAMETER for a NULL piSize. */
GC_API EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout);

/** Asks about a record that EventGetData has given: an information query of
 * EVENT_DATA_INFO_CMD_LIST.
 *
 * pInBuffer [in] is the record, iInSize its bytes.
 *
 * @return as an information query; GC_ERR_INVALID_HANDLE for a NULL pInBuffer. */
GC_API EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                        EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pOutBuffer,
                        size_t* piOutSize);

/** Asks an event about itself: an information query of EVENT_INFO_CMD_LIST. */
GC_API EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                    void* pBuffer, size_t* piSize);

/** Drops the entries of an event that nobody has taken, and lets it wait again after EventKill. */
GC_API EventFlush(EVENT_HANDLE hEvent);

/** Ends every wait for the event, and each later one until EventFlush: they answer GC_ERR_ABORT.
 *
 * An unknown handle is answered, but not recorded as the thread's last error. */
GC_API EventKill(EVENT_HANDLE hEvent);

/** Opens the System, of which there is one. phTL [in, out] must hold NULL and receives the handle.
 *
 * @return GC_ERR_INVALID_HANDLE when *phTL is not NULL; GC_ERR_RESOURCE_IN_USE when the System is
 * open; GC_ERR_INVALID_PARAMETER for NULL. */
GC_API TLOpen(TL_HANDLE* phTL);

/** Closes the System with all that was opened through it.
 *
 * There is one System from GCInitLib to GCCloseLib, and its handle is the same each time it is
 * opened: a handle of an earlier TLOpen closes it too.
 *
 * @return GC_ERR_ERROR when it is closed already; GC_ERR_INVALID_HANDLE for any other handle. */
GC_API TLClose(TL_HANDLE hTL);

/** Asks the System: an information query of TL_INFO_CMD_LIST. */
GC_API TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                 size_t* piSize);

/** How many interfaces the list has: 0 before TLUpdateInterfaceList, 1 afterwards. piNumIfaces
 * [out]. */
GC_API TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces);

/** The id of the interface at place iIndex, from 0. sID [out]: text with its zero; piSize as in an
 * information query.
 *
 * @return GC_ERR_INVALID_INDEX; else as an information query. */
GC_API TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize);

/** Asks about a listed interface, open or not: an information query of INTERFACE_INFO_CMD_LIST.
 *
 * @return GC_ERR_INVALID_ID for an interface that is not listed; else as an information query, but
 * GC_ERR_NOT_AVAILABLE for an unknown command while the interface is closed. */
GC_API TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd,
                          INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** Opens a listed interface and starts its search thread. phIface [out].
 *
 * @return GC_ERR_INVALID_ID when it is not listed (TLUpdateInterfaceList first);
 * GC_ERR_RESOURCE_IN_USE when it is open; GC_ERR_RESOURCE_EXHAUSTED when no thread can be started;
 * GC_ERR_INVALID_PARAMETER for NULL. */
GC_API TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface);

/** Makes the list of interfaces: always the one, which stands for the whole bus. Does not wait.
 *
 * pbChanged [out] may be NULL. */
GC_API TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout);

/** Closes an interface with all that was opened through it. Its list of cameras goes with it. */
GC_API IFClose(IF_HANDLE hIface);

/** Asks an interface: an information query of INTERFACE_INFO_CMD_LIST. */
GC_API IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                 void* pBuffer, size_t* piSize);

/** How many cameras the list has, as of the last IFUpdateDeviceList on this handle. piNumDevices
 * [out]. */
GC_API IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices);

/** The id of the camera at place iIndex, from 0: its GUID. sIDeviceID [out]: text with its zero;
 * piSize as in an information query.
 *
 * @return GC_ERR_INVALID_INDEX; else as an information query. */
GC_API IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize);

/** Looks for cameras for the whole time of iTimeout, in ms, and updates the list; 200 to 500 ms
 * find what is plugged in.
 *
 * With 0 it returns at once with what an earlier search has found. GENTL_INFINITE does not wait
 * either (the low 32 bits count, signed): it answers GC_ERR_TIMEOUT, unless an earlier search has
 * ended and nobody has asked since; the search goes on until the next call or IFClose. The same
 * holds for other times: a search that ended after its caller had given up answers the next call at
 * once, with what it has found. To see a camera that was just plugged in, update until it is
 * listed. Several threads may call side by side; each waits for its own time at most.
 *
 * The first camera of the bus is listed whatever its maker, later ones only of the vendor
 * "ZRK-ORVANE GmbH". pbChanged [out] may be NULL.
 *
 * @return GC_ERR_TIMEOUT when no search was finished in time; the list is as before. A search that
 * takes longer than iTimeout goes on, so that the second or third call succeeds. */
GC_API IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout);

/** Asks about a listed camera, open or not: an information query of DEVICE_INFO_CMD_LIST.
 *
 * @return GC_ERR_INVALID_ID for a camera that is not listed; else as an information query. */
GC_API IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd,
                       INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** Opens a camera of this interface's list, and reads its description file's place. phDevice [out].
 *
 * iOpenFlag: DEVICE_ACCESS_READONLY, DEVICE_ACCESS_CONTROL or DEVICE_ACCESS_EXCLUSIVE, which all
 * do the same: one opening at a time.
 *
 * @return GC_ERR_INVALID_ID when it is not listed (IFUpdateDeviceList on this very handle first);
 * GC_ERR_RESOURCE_IN_USE when it is open here; GC_ERR_NOT_IMPLEMENTED for other flags;
 * GC_ERR_ERROR when the bus or the camera refuses (no right, another process, no description file
 * or more than one); GC_ERR_INVALID_PARAMETER for NULL. */
GC_API IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlag,
                    DEV_HANDLE* phDevice);

/** The port of the camera itself, for GCReadPort and GCWritePort; valid until DevClose.
 * phRemoteDevice [out].
 *
 * @return GC_ERR_INVALID_PARAMETER for NULL. */
GC_API DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice);

/** How many data streams the camera has: 1. piNumDataStreams [out].
 *
 * @return GC_ERR_INVALID_PARAMETER for NULL. */
GC_API DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams);

/** The id of the data stream at place iIndex, from 0. sDataStreamID [out]: text with its zero;
 * piSize as in an information query.
 *
 * @return GC_ERR_INVALID_INDEX; else as an information query. */
GC_API DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize);

/** Opens the camera's data stream. phDataStream [out].
 *
 * @return GC_ERR_INVALID_ID; GC_ERR_RESOURCE_IN_USE when it is open; GC_ERR_ERROR when the camera
 * has no stream or another process has it; GC_ERR_INVALID_PARAMETER for NULL. */
GC_API DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream);

/** Asks an open camera: an information query of DEVICE_INFO_CMD_LIST.
 *
 * @return as an information query; GC_ERR_IO when the camera had to be asked and did not answer. */
GC_API DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                  void* pBuffer, size_t* piSize);

/** Closes a camera with its data stream; waits for the calls that are inside. */
GC_API DevClose(DEV_HANDLE hDevice);

/** Announces memory of the caller's for images; it must stay until DSRevokeBuffer.
 *
 * pBuffer and iSize in bytes: at least the camera's payload size, else images come cut off and
 * incomplete. pPrivate comes back with each image. phBuffer [out].
 *
 * @return GC_ERR_BUSY while acquiring; GC_ERR_RESOURCE_IN_USE for memory that is announced
 * already; GC_ERR_INVALID_PARAMETER for NULL. */
GC_API DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate,
                        BUFFER_HANDLE* phBuffer);

/** The same with memory of the producer's, freed with DSRevokeBuffer or the camera.
 *
 * phBuffer [in, out] must hold NULL.
 *
 * @return GC_ERR_BUSY while acquiring; GC_ERR_INVALID_PARAMETER for NULL or a variable that holds
 * something; GC_ERR_OUT_OF_MEMORY. */
GC_API DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate,
                                BUFFER_HANDLE* phBuffer);

/** Moves buffers between the queues, as ACQ_QUEUE_TYPE_LIST tells.
 *
 * @return GC_ERR_NOT_IMPLEMENTED for an operation that there is not. */
GC_API DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation);

/** Programs the camera's stream and begins to receive. Starting a camera that waits for it
 * ("AcquisitionStart") is the caller's, afterwards.
 *
 * iStartFlags is not looked at. iNumToAcquire: the acquisition ends by itself after so many
 * images; GENTL_INFINITE for no limit.
 *
 * @return GC_ERR_INVALID_BUFFER when no buffer is announced; GC_ERR_INVALID_PARAMETER for 0
 * images; GC_ERR_ERROR when the bus or the camera refuses. */
GC_API DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags,
                          uint64_t iNumToAcquire);

/** Ends the acquisition. Waits for the transfer in flight: up to 3 s when the camera sends no more,
 * 5 s when the bus does not answer.
 *
 * iStopFlags: ACQ_STOP_FLAGS_DEFAULT or ACQ_STOP_FLAGS_KILL, which do the same. Succeeds when
 * nothing runs. Entries of the new-buffer event stay.
 *
 * @return GC_ERR_NOT_IMPLEMENTED for other flags. */
GC_API DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags);

/** Asks a data stream: an information query of STREAM_INFO_CMD_LIST. */
GC_API DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                 void* pBuffer, size_t* piSize);

/** The handle of the announced buffer at place iIndex, from 0. phBuffer [out].
 *
 * @return GC_ERR_INVALID_INDEX; GC_ERR_INVALID_PARAMETER for NULL. */
GC_API DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer);

/** Closes a data stream, ending its acquisition. Buffers stay announced until DSRevokeBuffer or
 * DevClose.
 *
 * @return GC_ERR_NOT_INITIALIZED when it is not open. */
GC_API DSClose(DS_HANDLE hDataStream);

/** Takes an announced buffer back; waits for an image that is just being written into it.
 *
 * pBuffer and pPrivate [out] may be NULL: what was announced. Memory of the producer's is gone
 * afterwards.
 *
 * @return GC_ERR_BUSY while it is in the input queue (DSFlushQueue first); GC_ERR_INVALID_HANDLE
 * for an unknown buffer. */
GC_API DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer,
                      void** pPrivate);

/** Puts a buffer into the input queue, to be filled next. From here until EventGetData returns it,
 * it is the producer's.
 *
 * @return GC_ERR_RESOURCE_IN_USE when it is queued already; GC_ERR_INVALID_HANDLE for an unknown
 * buffer. */
GC_API DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer);

/** Asks about a buffer and the image in it: an information query of BUFFER_INFO_CMD_LIST.
 *
 * @return as an information query; GC_ERR_INVALID_HANDLE for an unknown buffer. */
GC_API DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd,
                       INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** How many description files a port has. piNumURLs [out].
 *
 * @return GC_ERR_INVALID_PARAMETER for NULL. */
GC_API GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs);

/** Asks about a description file, by its place from 0: an information query of URL_INFO_CMD_LIST,
 * of which URL_INFO_URL is served (see GCGetPortURL).
 *
 * @return as an information query, and GC_ERR_INVALID_INDEX. */
GC_API GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                        INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** Several GCReadPort at once: entry by entry up to the first that fails. Neither the entries nor
 * piNumEntries [in] are written.
 *
 * @return the status of the entry that failed; GC_ERR_INVALID_PARAMETER for NULL. */
GC_API GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                         size_t* piNumEntries);

/** Several GCWritePort at once; see GCReadPortStacked. */
GC_API GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                          size_t* piNumEntries);

/** Where the chunks of an image are.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                            SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks);

/** The System of an interface.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem);

/** The interface of a device.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface);

/** The device of a data stream.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice);

/** How many parts an image has.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t* piNumParts);

/** Asks about a part of an image.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED, whatever the arguments. */
GC_API DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iPartIndex,
                           BUFFER_PART_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                           size_t* piSize);

/** For network cameras of this producer's family.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED. */
GC_API ZrForceIPConfig(void);

/** For network cameras of this producer's family.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED. */
GC_API ZrSetIPConfig(void);

/** GenTL 1.6: announces a buffer that is made of several pieces of the caller's memory.
 *
 * ppSegments and piSizes [in] have iNumSegments entries; pPrivate is the user pointer; phBuffer
 * [out] receives the handle.
 *
 * @return always GC_ERR_NOT_IMPLEMENTED: images of USB3 Vision cameras come in one piece. */
GC_API DSAnnounceCompositeBuffer(DS_HANDLE hDataStream, size_t iNumSegments, void** ppSegments,
                                 size_t* piSizes, void* pPrivate, BUFFER_HANDLE* phBuffer);

/** GenTL 1.6: asks several questions of DSGetBufferInfo in one call, and so about one image.
 *
 * pInfoStacked [in, out] has iNumInfos entries, each with a result of its own.
 *
 * @return success also when single questions failed; GC_ERR_INVALID_PARAMETER for a NULL
 * pInfoStacked. */
GC_API DSGetBufferInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                              DS_BUFFER_INFO_STACKED* pInfoStacked, size_t iNumInfos);

/** GenTL 1.6: asks several questions of DSGetBufferPartInfo in one call.
 *
 * pInfoStacked [in, out] has iNumInfos entries, each with a result of its own.
 *
 * @return success also when single questions failed; GC_ERR_INVALID_PARAMETER for a NULL
 * pInfoStacked. */
GC_API DSGetBufferPartInfoStacked(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                  DS_BUFFER_PART_INFO_STACKED* pInfoStacked, size_t iNumInfos);

/** GenTL 1.6: how many flows the stream is sent in; piNumFlows [out] is 0, since USB3 Vision knows
 * none.
 *
 * @return GC_ERR_INVALID_PARAMETER for a NULL piNumFlows. */
GC_API DSGetNumFlows(DS_HANDLE hDataStream, uint32_t* piNumFlows);

/** GenTL 1.6: an information query of FLOW_INFO_CMD_LIST about the flow iFlowIndex.
 *
 * @return GC_ERR_INVALID_INDEX, since there is no flow. */
GC_API DSGetFlowInfo(DS_HANDLE hDataStream, uint32_t iFlowIndex, FLOW_INFO_CMD iInfoCmd,
                     INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

/** GenTL 1.6: how many segments a buffer is made of; piNumSegments [out] is 0, since no buffer is a
 * composite one.
 *
 * @return GC_ERR_INVALID_PARAMETER for a NULL piNumSegments. */
GC_API DSGetNumBufferSegments(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                              uint32_t* piNumSegments);

/** GenTL 1.6: an information query of SEGMENT_INFO_CMD_LIST about the segment iSegmentIndex.
 *
 * @return GC_ERR_INVALID_INDEX, since there is no segment. */
GC_API DSGetBufferSegmentInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iSegmentIndex,
                              SEGMENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                              size_t* piSize);

/** @name Function pointers
 * For consumers that load the producer with dlopen. @{ */
/** The function whose name this is without the P. */
typedef GC_ERROR(GC_CALLTYPE* PGCGetInfo)(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                          void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCGetLastError)(GC_ERROR* piErrorCode, char* sErrText,
                                               size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCInitLib)(void);
typedef GC_ERROR(GC_CALLTYPE* PGCCloseLib)(void);
typedef GC_ERROR(GC_CALLTYPE* PGCReadPort)(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer,
                                           size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCWritePort)(PORT_HANDLE hPort, uint64_t iAddress,
                                            const void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCGetPortURL)(PORT_HANDLE hPort, char* sURL, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCGetPortInfo)(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd,
                                              INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCRegisterEvent)(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID,
                                                EVENT_HANDLE* phEvent);
typedef GC_ERROR(GC_CALLTYPE* PGCUnregisterEvent)(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID);
typedef GC_ERROR(GC_CALLTYPE* PEventGetData)(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize,
                                             uint64_t iTimeout);
typedef GC_ERROR(GC_CALLTYPE* PEventGetDataInfo)(EVENT_HANDLE hEvent, const void* pInBuffer,
                                                 size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                                 INFO_DATATYPE* piType, void* pOutBuffer,
                                                 size_t* piOutSize);
typedef GC_ERROR(GC_CALLTYPE* PEventGetInfo)(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd,
                                             INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PEventFlush)(EVENT_HANDLE hEvent);
typedef GC_ERROR(GC_CALLTYPE* PEventKill)(EVENT_HANDLE hEvent);
typedef GC_ERROR(GC_CALLTYPE* PTLOpen)(TL_HANDLE* phTL);
typedef GC_ERROR(GC_CALLTYPE* PTLClose)(TL_HANDLE hTL);
typedef GC_ERROR(GC_CALLTYPE* PTLGetInfo)(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd,
                                          INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PTLGetNumInterfaces)(TL_HANDLE hTL, uint32_t* piNumIfaces);
typedef GC_ERROR(GC_CALLTYPE* PTLGetInterfaceID)(TL_HANDLE hTL, uint32_t iIndex, char* sID,
                                                 size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PTLGetInterfaceInfo)(TL_HANDLE hTL, const char* sIfaceID,
                                                   INTERFACE_INFO_CMD iInfoCmd,
                                                   INFO_DATATYPE* piType, void* pBuffer,
                                                   size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PTLOpenInterface)(TL_HANDLE hTL, const char* sIfaceID,
                                                IF_HANDLE* phIface);
typedef GC_ERROR(GC_CALLTYPE* PTLUpdateInterfaceList)(TL_HANDLE hTL, bool8_t* pbChanged,
                                                      uint64_t iTimeout);
typedef GC_ERROR(GC_CALLTYPE* PIFClose)(IF_HANDLE hIface);
typedef GC_ERROR(GC_CALLTYPE* PIFGetInfo)(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd,
                                          INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PIFGetNumDevices)(IF_HANDLE hIface, uint32_t* piNumDevices);
typedef GC_ERROR(GC_CALLTYPE* PIFGetDeviceID)(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID,
                                              size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PIFUpdateDeviceList)(IF_HANDLE hIface, bool8_t* pbChanged,
                                                   uint64_t iTimeout);
typedef GC_ERROR(GC_CALLTYPE* PIFGetDeviceInfo)(IF_HANDLE hIface, const char* sDeviceID,
                                                DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                                void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PIFOpenDevice)(IF_HANDLE hIface, const char* sDeviceID,
                                             DEVICE_ACCESS_FLAGS iOpenFlag, DEV_HANDLE* phDevice);
typedef GC_ERROR(GC_CALLTYPE* PDevGetPort)(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice);
typedef GC_ERROR(GC_CALLTYPE* PDevGetNumDataStreams)(DEV_HANDLE hDevice,
                                                     uint32_t* piNumDataStreams);
typedef GC_ERROR(GC_CALLTYPE* PDevGetDataStreamID)(DEV_HANDLE hDevice, uint32_t iIndex,
                                                   char* sDataStreamID, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PDevOpenDataStream)(DEV_HANDLE hDevice, const char* sDataStreamID,
                                                  DS_HANDLE* phDataStream);
typedef GC_ERROR(GC_CALLTYPE* PDevGetInfo)(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd,
                                           INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PDevClose)(DEV_HANDLE hDevice);
typedef GC_ERROR(GC_CALLTYPE* PDSAnnounceBuffer)(DS_HANDLE hDataStream, void* pBuffer, size_t iSize,
                                                 void* pPrivate, BUFFER_HANDLE* phBuffer);
typedef GC_ERROR(GC_CALLTYPE* PDSAllocAndAnnounceBuffer)(DS_HANDLE hDataStream, size_t iSize,
                                                         void* pPrivate, BUFFER_HANDLE* phBuffer);
typedef GC_ERROR(GC_CALLTYPE* PDSFlushQueue)(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation);
typedef GC_ERROR(GC_CALLTYPE* PDSStartAcquisition)(DS_HANDLE hDataStream,
                                                   ACQ_START_FLAGS iStartFlags,
                                                   uint64_t iNumToAcquire);
typedef GC_ERROR(GC_CALLTYPE* PDSStopAcquisition)(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags);
typedef GC_ERROR(GC_CALLTYPE* PDSGetInfo)(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd,
                                          INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferID)(DS_HANDLE hDataStream, uint32_t iIndex,
                                              BUFFER_HANDLE* phBuffer);
typedef GC_ERROR(GC_CALLTYPE* PDSClose)(DS_HANDLE hDataStream);
typedef GC_ERROR(GC_CALLTYPE* PDSRevokeBuffer)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                               void** pBuffer, void** pPrivate);
typedef GC_ERROR(GC_CALLTYPE* PDSQueueBuffer)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferInfo)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                                void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCGetNumPortURLs)(PORT_HANDLE hPort, uint32_t* piNumURLs);
typedef GC_ERROR(GC_CALLTYPE* PGCGetPortURLInfo)(PORT_HANDLE hPort, uint32_t iURLIndex,
                                                 URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                                 void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PGCReadPortStacked)(PORT_HANDLE hPort,
                                                  PORT_REGISTER_STACK_ENTRY* pEntries,
                                                  size_t* piNumEntries);
typedef GC_ERROR(GC_CALLTYPE* PGCWritePortStacked)(PORT_HANDLE hPort,
                                                   PORT_REGISTER_STACK_ENTRY* pEntries,
                                                   size_t* piNumEntries);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferChunkData)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                     SINGLE_CHUNK_DATA* pChunkData,
                                                     size_t* piNumChunks);
typedef GC_ERROR(GC_CALLTYPE* PIFGetParentTL)(IF_HANDLE hIface, TL_HANDLE* phSystem);
typedef GC_ERROR(GC_CALLTYPE* PDevGetParentIF)(DEV_HANDLE hDevice, IF_HANDLE* phIface);
typedef GC_ERROR(GC_CALLTYPE* PDSGetParentDev)(DS_HANDLE hDataStream, DEV_HANDLE* phDevice);
typedef GC_ERROR(GC_CALLTYPE* PDSGetNumBufferParts)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                    uint32_t* piNumParts);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferPartInfo)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                    uint32_t iPartIndex,
                                                    BUFFER_PART_INFO_CMD iInfoCmd,
                                                    INFO_DATATYPE* piType, void* pBuffer,
                                                    size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PZrForceIPConfig)(void);
typedef GC_ERROR(GC_CALLTYPE* PZrSetIPConfig)(void);
typedef GC_ERROR(GC_CALLTYPE* PDSAnnounceCompositeBuffer)(DS_HANDLE hDataStream,
                                                          size_t iNumSegments, void** ppSegments,
                                                          size_t* piSizes, void* pPrivate,
                                                          BUFFER_HANDLE* phBuffer);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferInfoStacked)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                       DS_BUFFER_INFO_STACKED* pInfoStacked,
                                                       size_t iNumInfos);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferPartInfoStacked)(
    DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, DS_BUFFER_PART_INFO_STACKED* pInfoStacked,
    size_t iNumInfos);
typedef GC_ERROR(GC_CALLTYPE* PDSGetNumFlows)(DS_HANDLE hDataStream, uint32_t* piNumFlows);
typedef GC_ERROR(GC_CALLTYPE* PDSGetFlowInfo)(DS_HANDLE hDataStream, uint32_t iFlowIndex,
                                              FLOW_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                              void* pBuffer, size_t* piSize);
typedef GC_ERROR(GC_CALLTYPE* PDSGetNumBufferSegments)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                       uint32_t* piNumSegments);
typedef GC_ERROR(GC_CALLTYPE* PDSGetBufferSegmentInfo)(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer,
                                                       uint32_t iSegmentIndex,
                                                       SEGMENT_INFO_CMD iInfoCmd,
                                                       INFO_DATATYPE* piType, void* pBuffer,
                                                       size_t* piSize);
/** @} */

#endif
