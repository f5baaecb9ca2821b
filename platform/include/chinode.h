// CHI node binary interface: the records, constants and callback tables exchanged between a
// camera framework (the host) and a node library. LP64 only; every size and offset is pinned by
// the static_asserts in chinodeabi.h so that a host built elsewhere sees the same bytes.
#ifndef ZELK_PLATFORM_CHINODE_H
#define ZELK_PLATFORM_CHINODE_H

#include <stddef.h>
#include <stdint.h>

#include "chitypes.h"

#pragma pack(push, 8)

extern "C" {

static const UINT32 ChiNodeMajorVersion = 0;
static const UINT32 ChiNodeMinorVersion = 0;

// ---- Capabilities and vendor tags -------------------------------------------------------------

typedef struct ChiNodeCapsInfo
{
    UINT32 size;
    UINT32 nodeCapsMask;
} CHINODECAPSINFO;

// Vendor tag types follow the Android camera metadata type codes.
enum ChiVendorTagType : UINT8
{
    ChiVendorTagTypeByte     = 0,
    ChiVendorTagTypeInt32    = 1,
    ChiVendorTagTypeFloat    = 2,
    ChiVendorTagTypeInt64    = 3,
    ChiVendorTagTypeDouble   = 4,
    ChiVendorTagTypeRational = 5,
};

typedef struct ChiVendorTagData
{
    const CHAR* pVendorTagName;
    UINT8       vendorTagType;
    SIZE_T      numUnits;
    UINT32      tagFlags;
} CHIVENDORTAGDATA;

static const UINT32 ChiTagSectionVisibleToOEM       = 0x1;
static const UINT32 ChiTagSectionVisibleToFramework = 0x2;
static const UINT32 ChiTagSectionVisibleToAll       = 0xFFFFFFFF;

typedef struct ChiVendorTagSectionData
{
    const CHAR*       pVendorTagSectionName;
    UINT32            firstVendorTag;
    UINT32            numTags;
    CHIVENDORTAGDATA* pVendorTagData;
    UINT32            visibility;
} CHIVENDORTAGSECTIONDATA;

typedef struct ChiVendorTagInfo
{
    CHIVENDORTAGSECTIONDATA* pVendorTagDataArray;
    UINT32                   numSections;
} CHIVENDORTAGINFO;

typedef struct ChiQueryVendorTag
{
    UINT32            size;
    CHIVENDORTAGINFO* pVendorTagInfo;
} CHIQUERYVENDORTAG;

typedef struct ChiVendorTagBaseInfo
{
    UINT32      size;
    UINT32      vendorTagBase;
    const CHAR* pComponentName;
    const CHAR* pTagName;
} CHIVENDORTAGBASEINFO;

// Vendor tag ids start here; the low 16 bits are the index inside a section.
static const UINT32 ChiVendorTagIdBase      = 0x80000000;
static const UINT32 ChiVendorTagIndexMask   = 0x0000FFFF;

// ---- Metadata ---------------------------------------------------------------------------------

enum ChiMetadataType : INT32
{
    ChiMetadataStatic  = 1,
    ChiMetadataDynamic = 2,
};

// Pool selector bits OR-ed into a tag id; no bit set addresses the result (output) pool.
static const UINT32 ChiMetadataInputPool   = 0x08000000;
static const UINT32 ChiMetadataUsecasePool = 0x20000000;
static const UINT32 ChiMetadataStaticPool  = 0x70000000;
static const UINT32 ChiMetadataPoolMask    = 0x78000000;

typedef struct ChiTagData
{
    UINT32 size;
    UINT64 requestId;
    void*  pData;
    SIZE_T dataSize;
    UINT64 offset;
    BOOL   negate;
} CHITAGDATA;

typedef struct ChiMetadataInfo
{
    UINT32          size;
    CHIHANDLE       chiSession;
    UINT32          tagNum;
    UINT32*         pTagList;
    CHITAGDATA*     pTagData;
    ChiMetadataType metadataType;
} CHIMETADATAINFO;

// ---- Host interface handed to the node ---------------------------------------------------------

typedef CDKResult (*PFNGETMETADATA)(CHIMETADATAINFO* pMetadataInfo);
typedef CDKResult (*PFNSETMETADATA)(CHIMETADATAINFO* pMetadataInfo);
typedef CDKResult (*PFNGETVENDORTAGBASE)(CHIVENDORTAGBASEINFO* pVendorTagBaseInfo);
typedef CDKResult (*PFNGETMULTICAMDYNAMICMETA)(CHIMETADATAINFO* pMetadataInfo, UINT32 cameraId);
typedef CDKResult (*PFNGETSTATICMETADATA)(CHIMETADATAINFO* pMetadataInfo, UINT32 cameraId);

// Slots 4-20 and 23-27 (request done, fences, data sources, caches, flush information, buffer
// managers, port metadata) are not used by this node and are kept as opaque pointers.
typedef struct ChiNodeInterface
{
    UINT32                    size;
    UINT32                    majorVersion;
    UINT32                    minorVersion;
    PFNGETMETADATA            pGetMetadata;
    PFNSETMETADATA            pSetMetadata;
    PFNGETVENDORTAGBASE       pGetVendorTagBase;
    void*                     pReserved4To20[17];
    PFNGETMULTICAMDYNAMICMETA pGetMultiCamDynamicMetaByCamId;
    PFNGETSTATICMETADATA      pGetStaticMetadata;
    void*                     pReserved23To27[5];
} CHINODEINTERFACE;

// ---- Creation and destruction -----------------------------------------------------------------

typedef struct ChiNodeProperty
{
    UINT32      id;
    const void* pValue;
} CHINODEPROPERTY;

// Node flag bits of ChiNodeCreateInfo::nodeFlags.
static const UINT32 ChiNodeFlagRealTime                 = 1u << 1;
static const UINT32 ChiNodeFlagCanSetInputDependency    = 1u << 5;
static const UINT32 ChiNodeFlagDelayedProcessingNotify  = 1u << 7;

typedef struct ChiNodeCreateInfo
{
    UINT32           size;
    CHIHANDLE        hChiSession;
    CHIHANDLE        phNodeSession;
    UINT32           nodeId;
    CHINODECAPSINFO  nodeCaps;
    UINT32           nodeFlags;
    UINT32           nodeInstanceId;
    UINT32           chiICAVersion;
    UINT32           nodePropertyCount;
    CHINODEPROPERTY* pNodeProperties;
    UINT64           pipelineDelay;
    void*            pPrivateCreateData;
    UINT64           reserved[5];
} CHINODECREATEINFO;

typedef struct ChiNodeDestroyInfo
{
    UINT32    size;
    CHIHANDLE hNodeSession;
} CHINODEDESTROYINFO;

// ---- Buffer negotiation -----------------------------------------------------------------------

typedef struct ChiAlignmentInfo
{
    UINT32 strideAlignment;
    UINT32 scanlineAlignment;
} CHIALIGNMENTINFO;

typedef struct ChiNodeBufferRequirement
{
    UINT32           minW;
    UINT32           minH;
    UINT32           maxW;
    UINT32           maxH;
    UINT32           optimalW;
    UINT32           optimalH;
    UINT32           format;
    CHIALIGNMENTINFO planeAlignment[4];
} CHINODEBUFFERREQUIREMENT;

typedef struct ChiOutputPortQueryBufferInfo
{
    UINT32                    outputPortId;
    UINT32                    numConnectedInputPorts;
    CHINODEBUFFERREQUIREMENT* pBufferRequirement;
    CHINODEBUFFERREQUIREMENT  outputBufferOption;
    UINT32                    bufferUsage[4];
    UINT32                    outputPortFlags;
} CHIOUTPUTPORTQUERYBUFFERINFO;

typedef struct ChiInputPortQueryBufferInfo
{
    UINT32                   inputPortId;
    CHINODEBUFFERREQUIREMENT inputBufferOption;
} CHIINPUTPORTQUERYBUFFERINFO;

typedef struct ChiNodeQueryBufferInfo
{
    UINT32                        size;
    CHIHANDLE                     hNodeSession;
    UINT32                        numOutputPorts;
    CHIOUTPUTPORTQUERYBUFFERINFO* pOutputPortQueryInfo;
    UINT32                        numInputPorts;
    CHIINPUTPORTQUERYBUFFERINFO*  pInputOptions;
    UINT64                        reserved;
} CHINODEQUERYBUFFERINFO;

typedef struct ChiNodeImageFormat
{
    UINT32 width;
    UINT32 height;
} CHINODEIMAGEFORMAT;

typedef struct ChiNodeSetBufferPropertiesInfo
{
    UINT32                    size;
    CHIHANDLE                 hNodeSession;
    UINT32                    portId;
    const CHINODEIMAGEFORMAT* pFormat;
    UINT64                    reserved[3];
} CHINODESETBUFFERPROPERTIESINFO;

// ---- Images -----------------------------------------------------------------------------------

enum ChiFormat : UINT32
{
    ChiFormatJpeg        = 0,
    ChiFormatY8          = 1,
    ChiFormatY16         = 2,
    ChiFormatYUV420NV12  = 3,
    ChiFormatYUV420NV21  = 4,
    ChiFormatYUV422NV16  = 5,
    ChiFormatBlob        = 6,
    ChiFormatRawYUV8BIT  = 7,
    ChiFormatRawPrivate  = 8,
    ChiFormatRawMIPI     = 9,
    ChiFormatRawPlain16  = 10,
};

typedef struct ChiYUVFormat
{
    UINT32 width;
    UINT32 height;
    UINT32 planeStride;
    UINT32 sliceHeight;
    UINT32 metadataStride;
    UINT32 metadataHeight;
    UINT32 metadataSize;
    SIZE_T pixelPlaneSize;
} CHIYUVFORMAT;

typedef union ChiFormatParams
{
    CHIYUVFORMAT yuvFormat[4];
} CHIFORMATPARAMS;

typedef struct ChiImageFormat
{
    UINT32           width;
    UINT32           height;
    UINT32           format;
    UINT32           colorSpace;
    UINT32           rotation;
    CHIFORMATPARAMS  formatParams;
    SIZE_T           alignment;
    CHIALIGNMENTINFO planeAlignment[4];
} CHIIMAGEFORMAT;

typedef struct ChiImage
{
    UINT32 size;
    INT    fd[4];
    UCHAR* pAddr[4];
    void*  pNativeHandle;
} CHIIMAGE;

static const UINT32 ChiMaxImagesPerList = 8;

typedef struct ChiImageList
{
    UINT32         size;
    CHIIMAGEFORMAT format;
    UINT32         numberOfPlanes;
    SIZE_T         planeSize[4];
    SIZE_T         metadataSize[4];
    UINT32         imageCount;
    CHIIMAGE       pImageList[ChiMaxImagesPerList];
    UINT32         portId;
    INT32          handles[4];
    void*          pfenceHandle;
    void*          pIsFenceSignaled;
    void*          imageHandle;
} CHIIMAGELIST;

typedef CHIIMAGELIST* CHINODEBUFFERHANDLE;

// ---- Requests and flush -----------------------------------------------------------------------

typedef struct ChiNodeProcessRequestInfo
{
    UINT32               size;
    CHIHANDLE            hNodeSession;
    UINT64               frameNum;
    void*                pDependency;
    UINT32               inputNum;
    CHINODEBUFFERHANDLE* phInputBuffer;
    UINT32               outputNum;
    CHINODEBUFFERHANDLE* phOutputBuffer;
    void*                pBypassData;
    CHIFENCEHANDLE       doneFence;
    BOOL                 isDelayedRequestDone;
    BOOL                 isEarlyMetadataDone;
    BOOL                 requireCmdBuffers;
    UINT64               reserved;
} CHINODEPROCESSREQUESTINFO;

typedef struct ChiNodeFlushRequestInfo
{
    UINT32    size;
    CHIHANDLE hNodeSession;
    UINT64    frameNum;
} CHINODEFLUSHREQUESTINFO;

typedef struct ChiNodeResponseInfo
{
    UINT32    size;
    CHIHANDLE hChiSession;
    UINT64    responseTimeInMillisec;
} CHINODERESPONSEINFO;

// ---- Callback table filled by ChiNodeEntry ----------------------------------------------------

typedef CDKResult (*PFNNODEGETCAPS)(CHINODECAPSINFO* pCapsInfo);
typedef CDKResult (*PFNNODEQUERYVENDORTAG)(CHIQUERYVENDORTAG* pQueryVendorTag);
typedef CDKResult (*PFNNODECREATE)(CHINODECREATEINFO* pCreateInfo);
typedef CDKResult (*PFNNODEDESTROY)(CHINODEDESTROYINFO* pDestroyInfo);
typedef CDKResult (*PFNNODEQUERYBUFFERINFO)(CHINODEQUERYBUFFERINFO* pQueryBufferInfo);
typedef CDKResult (*PFNNODESETBUFFERINFO)(CHINODESETBUFFERPROPERTIESINFO* pSetBufferInfo);
typedef CDKResult (*PFNNODEPROCREQUEST)(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
typedef void      (*PFNCHINODESETNODEINTERFACE)(CHINODEINTERFACE* pNodeInterface);
typedef CDKResult (*PFNNODEFLUSHREQUEST)(CHINODEFLUSHREQUESTINFO* pFlushRequestInfo);
typedef CDKResult (*PFNNODEFLUSHRESPONSEINFO)(CHINODERESPONSEINFO* pResponseInfo);
typedef CDKResult (*PFNNODEDUMPCORECONFIG)(INT32 fd, UINT32 verbosity, void* pPrivate);

// Slot n (1-based) sits at byte 16 + 8 * (n - 1); unused slots are named after their number.
typedef struct ChiNodeCallbacks
{
    UINT32                     size;
    UINT32                     majorVersion;
    UINT32                     minorVersion;
    PFNNODEGETCAPS             pGetCapabilities;         // 1
    PFNNODEQUERYVENDORTAG      pQueryVendorTag;          // 2
    PFNNODECREATE              pCreate;                  // 3
    PFNNODEDESTROY             pDestroy;                 // 4
    PFNNODEQUERYBUFFERINFO     pQueryBufferInfo;         // 5
    void*                      pReserved6;
    void*                      pReserved7;
    PFNNODESETBUFFERINFO       pSetBufferInfo;           // 8
    void*                      pReserved9;
    void*                      pReserved10;
    PFNNODEPROCREQUEST         pProcessRequest;          // 11
    PFNCHINODESETNODEINTERFACE pChiNodeSetNodeInterface; // 12
    void*                      pReserved13;
    void*                      pReserved14;
    void*                      pReserved15;
    void*                      pReserved16;
    void*                      pReserved17;
    void*                      pReserved18;
    void*                      pReserved19;
    void*                      pReserved20;
    PFNNODEFLUSHREQUEST        pFlushRequest;            // 21
    PFNNODEFLUSHRESPONSEINFO   pGetFlushResponse;        // 22
    void*                      pReserved23;
    void*                      pReserved24;
    void*                      pReserved25;
    void*                      pReserved26;
    void*                      pReserved27;
    PFNNODEDUMPCORECONFIG      pDumpCoreNodeConfig;      // 28
    void*                      pReserved29;
    void*                      pReserved30;
    void*                      pReserved31;
    void*                      pReserved32;
    void*                      pReserved33;
    void*                      pReserved34;
    void*                      pReserved35;
    void*                      pReserved36;
    void*                      pReserved37;
} CHINODECALLBACKS;

typedef void (*PFNCHINODEENTRY)(CHINODECALLBACKS* pNodeCallbacks);

// ---- Sensor EEPROM information (static metadata) ----------------------------------------------

static const UINT32 EEPROMCustomInfoNameLength = 256;
static const UINT32 EEPROMCustomInfoMaxCount   = 50;

struct EEPROMRawOTPData
{
    UINT8* pRawData;
    UINT32 rawDataSize;
};

struct EEPROMCustomInfo
{
    CHAR   name[EEPROMCustomInfoNameLength];
    UINT32 value;
};

struct EEPROMInformation
{
    EEPROMRawOTPData rawOTPData;
    EEPROMCustomInfo customInfo[EEPROMCustomInfoMaxCount];
    UINT32           customInfoCount;
};

} // extern "C"

#pragma pack(pop)

#include "chinodeabi.h"

#endif // ZELK_PLATFORM_CHINODE_H
