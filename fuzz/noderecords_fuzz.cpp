// Fuzz target of the node's callbacks: an input is a sequence of calls, each handing the node one
// host record built from fuzz bytes: CHINODECAPSINFO, CHIQUERYVENDORTAG, CHINODECREATEINFO,
// CHINODEDESTROYINFO, CHINODEQUERYBUFFERINFO, CHINODESETBUFFERPROPERTIESINFO,
// CHINODEPROCESSREQUESTINFO, CHINODEFLUSHREQUESTINFO, CHINODERESPONSEINFO, the host interface, the
// core-config dump, and the callback table itself through ChiNodeEntry.
//
// Every size field is random (exact, a little short or long, or any 32-bit value) and so is every
// plain field. Pointers are only ever null or valid: a node handle is null or a node this input
// created and has not destroyed; an array pointer points at an allocation of exactly the count
// stated beside it (a null array may come with any count); image lists are those of
// nodefuzzhost's image reader. Records are allocated at their full size, as a host allocates its
// own structure whatever the size field says; the callback table alone is allocated at the size
// it states when that is shorter than the table, since the node promises to read nothing more of
// it. Besides the sanitizers, the target aborts when:
//   - ChiNodeEntry changes a table it refuses, or fills an accepted one with other callbacks than
//     the loaded library's;
//   - a refused capability or flush-response query changes the record;
//   - a successful create gives no handle, or a refused one gives a handle;
//   - a full request record for a live node is refused;
//   - after a successful buffer query some port's sizes are not 1440 x 1080.
// At the end of the input every node still alive is destroyed (which must succeed), the host's
// own interface is given back and the request metadata dropped.
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "nodefuzzhost.h"
#include "nodefuzzimages.h"

namespace
{

using zelkfuzz::FuzzReader;

const char* const kTarget          = "noderecords_fuzz";
const uint32_t    kMaxCalls        = 48;
const size_t      kMaxNodes        = 4;
const uint32_t    kMaxPorts        = 12;
const uint32_t    kMaxConnected    = 4;
const uint32_t    kMaxProperties   = 8;
const uint32_t    kMaxImageLists   = 3;
const uint64_t    kMaxPlaneBytes   = 1440ull * 1080ull;
const uint32_t    kFrameWidth      = 1440;
const uint32_t    kFrameHeight     = 1080;
const INT32       kStates[]        = { 1, 2, 3, 4, -1, 0, 20, 21, 22, 23, 24, -11 };

enum Call : uint8_t
{
    CallEntry,
    CallGetCaps,
    CallQueryVendorTag,
    CallCreate,
    CallDestroy,
    CallQueryBufferInfo,
    CallSetBufferInfo,
    CallProcessRequest,
    CallSetNodeInterface,
    CallFlushRequest,
    CallFlushResponse,
    CallDumpConfig,
    CallCount,
};

struct Run
{
    FuzzReader&            reader;
    std::vector<CHIHANDLE> nodes;
};

// Size field: exact, up to 64 bytes short or long, or any value.
UINT32 ReadSize(FuzzReader& reader, size_t exact)
{
    const uint8_t mode  = reader.U8();
    const UINT32  delta = 1u + (mode >> 2);
    switch (mode & 3)
    {
        case 0:  return static_cast<UINT32>(exact);
        case 1:  return (exact > delta) ? static_cast<UINT32>(exact - delta) : 0;
        case 2:  return static_cast<UINT32>(exact + delta);
        default: return reader.U32();
    }
}

// One in sixteen records is a null pointer.
bool ReadNull(FuzzReader& reader)
{
    return (reader.U8() & 15) == 15;
}

CHIHANDLE ReadNode(Run& run)
{
    const uint8_t pick = run.reader.U8();
    return ((pick == 0) || run.nodes.empty()) ? nullptr : run.nodes[(pick - 1u) % run.nodes.size()];
}

void Forget(Run& run, CHIHANDLE hNode)
{
    run.nodes.erase(std::remove(run.nodes.begin(), run.nodes.end(), hNode), run.nodes.end());
}

void Entry(Run& run)
{
    const UINT32 size   = ReadSize(run.reader, sizeof(CHINODECALLBACKS));
    const UINT32 major  = ((run.reader.U8() & 3) == 3) ? run.reader.U32() : ChiNodeMajorVersion;
    if (ReadNull(run.reader))
    {
        zelkfuzz::NodeEntry()(nullptr);
        return;
    }
    const size_t bytes = (size < sizeof(CHINODECALLBACKS)) ? std::max<size_t>(size, sizeof(UINT32))
                                                           : sizeof(CHINODECALLBACKS);
    std::unique_ptr<uint8_t[]> table(new uint8_t[bytes]);
    run.reader.Fill(table.get(), bytes);
    memcpy(table.get(), &size, sizeof(size));
    if (bytes >= 2 * sizeof(UINT32))
    {
        memcpy(table.get() + sizeof(UINT32), &major, sizeof(major));
    }
    const std::vector<uint8_t> before(table.get(), table.get() + bytes);
    zelkfuzz::NodeEntry()(reinterpret_cast<CHINODECALLBACKS*>(table.get()));

    if ((size < sizeof(CHINODECALLBACKS)) || (major != ChiNodeMajorVersion))
    {
        if (memcmp(before.data(), table.get(), bytes) != 0)
        {
            zelkfuzz::Fail(kTarget, "ChiNodeEntry changed a table it refused");
        }
        return;
    }
    CHINODECALLBACKS filled;
    memcpy(&filled, table.get(), sizeof(filled));
    const CHINODECALLBACKS& loaded = zelkfuzz::Callbacks();
    if ((filled.pGetCapabilities != loaded.pGetCapabilities) || (filled.pQueryVendorTag != loaded.pQueryVendorTag) ||
        (filled.pCreate != loaded.pCreate) || (filled.pDestroy != loaded.pDestroy) ||
        (filled.pQueryBufferInfo != loaded.pQueryBufferInfo) || (filled.pSetBufferInfo != loaded.pSetBufferInfo) ||
        (filled.pProcessRequest != loaded.pProcessRequest) ||
        (filled.pChiNodeSetNodeInterface != loaded.pChiNodeSetNodeInterface) ||
        (filled.pFlushRequest != loaded.pFlushRequest) || (filled.pGetFlushResponse != loaded.pGetFlushResponse) ||
        (filled.pDumpCoreNodeConfig != loaded.pDumpCoreNodeConfig))
    {
        zelkfuzz::Fail(kTarget, "ChiNodeEntry filled other callbacks than the loaded library's");
    }
}

void GetCaps(Run& run)
{
    CHINODECAPSINFO caps;
    caps.size         = ReadSize(run.reader, sizeof(caps));
    caps.nodeCapsMask = run.reader.U32();
    const UINT32 mask = caps.nodeCapsMask;
    const bool   null = ReadNull(run.reader);
    if ((zelkfuzz::Callbacks().pGetCapabilities(null ? nullptr : &caps) != CDKResultSuccess) &&
        (caps.nodeCapsMask != mask))
    {
        zelkfuzz::Fail(kTarget, "a refused capability query changed the record");
    }
}

// Reads what the node hands back the way a host registers it: every section and tag name.
void QueryVendorTag(Run& run)
{
    CHIQUERYVENDORTAG query;
    query.size           = ReadSize(run.reader, sizeof(query));
    query.pVendorTagInfo = nullptr;
    const bool null      = ReadNull(run.reader);
    if ((zelkfuzz::Callbacks().pQueryVendorTag(null ? nullptr : &query) != CDKResultSuccess) ||
        (query.pVendorTagInfo == nullptr))
    {
        return;
    }
    size_t                  names = 0;
    const CHIVENDORTAGINFO& info  = *query.pVendorTagInfo;
    for (UINT32 s = 0; s < info.numSections; s++)
    {
        const CHIVENDORTAGSECTIONDATA& section = info.pVendorTagDataArray[s];
        names += strlen(section.pVendorTagSectionName);
        for (UINT32 t = 0; t < section.numTags; t++)
        {
            names += strlen(section.pVendorTagData[t].pVendorTagName);
        }
    }
    if (names == 0)
    {
        zelkfuzz::Fail(kTarget, "the vendor tags have no names");
    }
}

void Create(Run& run)
{
    if (run.nodes.size() >= kMaxNodes)
    {
        zelkfuzz::DestroyNode(run.nodes.front());
        run.nodes.erase(run.nodes.begin());
    }
    CHINODECREATEINFO info;
    run.reader.Fill(&info, sizeof(info));
    info.size               = ReadSize(run.reader, sizeof(info));
    info.hChiSession        = ((run.reader.U8() & 3) != 0) ? zelkfuzz::Session().Handle() : nullptr;
    info.phNodeSession      = nullptr;
    info.pPrivateCreateData = nullptr;

    std::vector<std::string>     texts;
    std::vector<CHINODEPROPERTY> properties;
    if ((run.reader.U8() & 1) != 0)
    {
        const uint32_t count = run.reader.U8() % (kMaxProperties + 1);
        texts.reserve(count);
        for (uint32_t i = 0; i < count; i++)
        {
            const UINT32 id      = run.reader.U32();
            const bool   present = (run.reader.U8() & 3) != 0;
            texts.push_back(run.reader.Text(32));
            properties.push_back({ id, present ? texts.back().c_str() : nullptr });
        }
        info.nodePropertyCount = count;
        info.pNodeProperties   = properties.data();
    }
    else
    {
        info.pNodeProperties = nullptr;
    }
    const bool      null   = ReadNull(run.reader);
    const CDKResult result = zelkfuzz::Callbacks().pCreate(null ? nullptr : &info);
    if (null)
    {
        return;
    }
    if ((result == CDKResultSuccess) != (info.phNodeSession != nullptr))
    {
        zelkfuzz::Fail(kTarget, "the node handle does not match the creation result");
    }
    if (info.phNodeSession != nullptr)
    {
        run.nodes.push_back(info.phNodeSession);
    }
}

void Destroy(Run& run)
{
    CHINODEDESTROYINFO info;
    info.size         = ReadSize(run.reader, sizeof(info));
    info.hNodeSession = ReadNode(run);
    const CHIHANDLE hNode = info.hNodeSession;
    const bool      null  = ReadNull(run.reader);
    if ((zelkfuzz::Callbacks().pDestroy(null ? nullptr : &info) == CDKResultSuccess) && !null)
    {
        Forget(run, hNode);
    }
}

bool SizeIsFrame(const CHINODEBUFFERREQUIREMENT& option)
{
    return (option.minW == kFrameWidth) && (option.maxW == kFrameWidth) && (option.optimalW == kFrameWidth) &&
           (option.minH == kFrameHeight) && (option.maxH == kFrameHeight) && (option.optimalH == kFrameHeight);
}

// An array of the stated count, or null with any count.
template <typename T>
T* ReadArray(Run& run, uint32_t maxCount, std::vector<T>* pStorage, UINT32* pCount)
{
    if ((run.reader.U8() & 7) == 7)
    {
        *pCount = run.reader.U32();
        return nullptr;
    }
    pStorage->resize(run.reader.U8() % (maxCount + 1));
    for (T& element : *pStorage)
    {
        run.reader.Fill(&element, sizeof(element));
    }
    *pCount = static_cast<UINT32>(pStorage->size());
    return pStorage->empty() ? nullptr : pStorage->data();
}

void QueryBufferInfo(Run& run)
{
    CHINODEQUERYBUFFERINFO query;
    memset(&query, 0, sizeof(query));
    query.size         = ReadSize(run.reader, sizeof(query));
    query.hNodeSession = ReadNode(run);
    query.reserved     = run.reader.U64();

    std::vector<CHIOUTPUTPORTQUERYBUFFERINFO>          outputs;
    std::vector<CHIINPUTPORTQUERYBUFFERINFO>           inputs;
    std::vector<std::vector<CHINODEBUFFERREQUIREMENT>> downstream;
    query.pOutputPortQueryInfo = ReadArray(run, kMaxPorts, &outputs, &query.numOutputPorts);
    downstream.resize(outputs.size());
    for (size_t i = 0; i < outputs.size(); i++)
    {
        outputs[i].pBufferRequirement =
            ReadArray(run, kMaxConnected, &downstream[i], &outputs[i].numConnectedInputPorts);
    }
    query.pInputOptions = ReadArray(run, kMaxPorts, &inputs, &query.numInputPorts);

    const bool null = ReadNull(run.reader);
    if ((zelkfuzz::Callbacks().pQueryBufferInfo(null ? nullptr : &query) != CDKResultSuccess) || null)
    {
        return;
    }
    for (const CHIOUTPUTPORTQUERYBUFFERINFO& output : outputs)
    {
        if (!SizeIsFrame(output.outputBufferOption))
        {
            zelkfuzz::Fail(kTarget, "an output port was not settled at 1440 x 1080");
        }
    }
    for (const CHIINPUTPORTQUERYBUFFERINFO& input : inputs)
    {
        if (!SizeIsFrame(input.inputBufferOption))
        {
            zelkfuzz::Fail(kTarget, "an input port was not settled at 1440 x 1080");
        }
    }
}

void SetBufferInfo(Run& run)
{
    CHINODEIMAGEFORMAT             format = { run.reader.U32(), run.reader.U32() };
    CHINODESETBUFFERPROPERTIESINFO info;
    run.reader.Fill(&info, sizeof(info));
    info.size         = ReadSize(run.reader, sizeof(info));
    info.hNodeSession = ReadNode(run);
    info.pFormat      = ((run.reader.U8() & 7) != 7) ? &format : nullptr;
    const bool null   = ReadNull(run.reader);
    (void)zelkfuzz::Callbacks().pSetBufferInfo(null ? nullptr : &info);
}

void ProcessRequest(Run& run)
{
    CHINODEPROCESSREQUESTINFO request;
    run.reader.Fill(&request, sizeof(request));
    request.size         = ReadSize(run.reader, sizeof(request));
    request.hNodeSession = ReadNode(run);
    request.frameNum     = ((run.reader.U8() & 3) == 3) ? run.reader.U64() : run.reader.U8();
    request.pDependency  = nullptr;
    request.pBypassData  = nullptr;
    request.doneFence    = nullptr;

    const uint8_t setting = run.reader.U8();
    if ((setting & 1) != 0)
    {
        const INT32 state = ((setting & 2) != 0) ? static_cast<INT32>(run.reader.U32())
                                                 : kStates[(setting >> 2) % (sizeof(kStates) / sizeof(kStates[0]))];
        zelkfuzz::Session().WriteInputValue(request.frameNum, "com.zelk.node.oisverify", "oisState", state);
    }
    zelkfuzz::NoteFrame(request.frameNum);

    std::vector<std::unique_ptr<zelkfuzz::FuzzImageList>> inputLists;
    std::vector<std::unique_ptr<zelkfuzz::FuzzImageList>> outputLists;
    std::vector<CHINODEBUFFERHANDLE>                      inputs;
    std::vector<CHINODEBUFFERHANDLE>                      outputs;
    if ((run.reader.U8() & 7) == 7)
    {
        request.inputNum      = run.reader.U32();
        request.phInputBuffer = nullptr;
    }
    else
    {
        inputLists            = zelkfuzz::ReadImageLists(run.reader, kMaxImageLists, kMaxPlaneBytes);
        inputs                = zelkfuzz::Handles(inputLists);
        request.inputNum      = static_cast<UINT32>(inputs.size());
        request.phInputBuffer = inputs.empty() ? nullptr : inputs.data();
    }
    if ((run.reader.U8() & 7) == 7)
    {
        request.outputNum      = run.reader.U32();
        request.phOutputBuffer = nullptr;
    }
    else
    {
        outputLists            = zelkfuzz::ReadImageLists(run.reader, kMaxImageLists, 4096);
        outputs                = zelkfuzz::Handles(outputLists);
        request.outputNum      = static_cast<UINT32>(outputs.size());
        request.phOutputBuffer = outputs.empty() ? nullptr : outputs.data();
    }

    const bool null = ReadNull(run.reader);
    zelkfuzz::AdvanceClock();
    const CDKResult result = zelkfuzz::Callbacks().pProcessRequest(null ? nullptr : &request);
    if (!null && (request.size >= sizeof(request)) && (request.hNodeSession != nullptr) &&
        (result != CDKResultSuccess))
    {
        zelkfuzz::Fail(kTarget, "a full request record for a live node was refused");
    }
}

void SetNodeInterface(Run& run)
{
    CHINODEINTERFACE iface = *zelkfuzz::Session().NodeInterface();
    iface.size             = ReadSize(run.reader, sizeof(iface));
    iface.majorVersion     = run.reader.U32();
    iface.minorVersion     = run.reader.U32();
    const uint8_t missing  = run.reader.U8();
    iface.pGetMetadata      = ((missing & 1) != 0) ? nullptr : iface.pGetMetadata;
    iface.pSetMetadata      = ((missing & 2) != 0) ? nullptr : iface.pSetMetadata;
    iface.pGetVendorTagBase = ((missing & 4) != 0) ? nullptr : iface.pGetVendorTagBase;
    iface.pGetMultiCamDynamicMetaByCamId = ((missing & 8) != 0) ? nullptr : iface.pGetMultiCamDynamicMetaByCamId;
    iface.pGetStaticMetadata = ((missing & 16) != 0) ? nullptr : iface.pGetStaticMetadata;
    const bool null = ReadNull(run.reader);
    zelkfuzz::Callbacks().pChiNodeSetNodeInterface(null ? nullptr : &iface);
}

void FlushRequest(Run& run)
{
    CHINODEFLUSHREQUESTINFO info;
    info.size         = ReadSize(run.reader, sizeof(info));
    info.hNodeSession = ReadNode(run);
    info.frameNum     = run.reader.U64();
    const bool null   = ReadNull(run.reader);
    (void)zelkfuzz::Callbacks().pFlushRequest(null ? nullptr : &info);
}

// The node takes the record's session field for its own handle.
void FlushResponse(Run& run)
{
    CHINODERESPONSEINFO info;
    info.size                   = ReadSize(run.reader, sizeof(info));
    info.hChiSession            = ReadNode(run);
    info.responseTimeInMillisec = run.reader.U64();
    const UINT64 before         = info.responseTimeInMillisec;
    const bool   null           = ReadNull(run.reader);
    if ((zelkfuzz::Callbacks().pGetFlushResponse(null ? nullptr : &info) != CDKResultSuccess) &&
        (info.responseTimeInMillisec != before))
    {
        zelkfuzz::Fail(kTarget, "a refused flush-response query changed the record");
    }
}

void DumpConfig(Run& run)
{
    const INT32  fd        = static_cast<INT32>(run.reader.U32());
    const UINT32 verbosity = run.reader.U32();
    (void)zelkfuzz::Callbacks().pDumpCoreNodeConfig(fd, verbosity, nullptr);
}

void Perform(Run& run, Call call)
{
    switch (call)
    {
        case CallEntry:            Entry(run); break;
        case CallGetCaps:          GetCaps(run); break;
        case CallQueryVendorTag:   QueryVendorTag(run); break;
        case CallCreate:           Create(run); break;
        case CallDestroy:          Destroy(run); break;
        case CallQueryBufferInfo:  QueryBufferInfo(run); break;
        case CallSetBufferInfo:    SetBufferInfo(run); break;
        case CallProcessRequest:   ProcessRequest(run); break;
        case CallSetNodeInterface: SetNodeInterface(run); break;
        case CallFlushRequest:     FlushRequest(run); break;
        case CallFlushResponse:    FlushResponse(run); break;
        case CallDumpConfig:       DumpConfig(run); break;
        case CallCount:            break;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    (void)pArgc;
    (void)pArgv;
    zelkfuzz::SetUpDevice(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    FuzzReader reader(pData, size);
    Run        run = { reader, {} };
    zelkfuzz::BeginInput();
    for (uint32_t i = 0; (i < kMaxCalls) && !reader.Empty(); i++)
    {
        Perform(run, static_cast<Call>(reader.U8() % CallCount));
    }
    for (CHIHANDLE hNode : run.nodes)
    {
        zelkfuzz::DestroyNode(hNode);
    }
    zelkfuzz::Callbacks().pChiNodeSetNodeInterface(zelkfuzz::Session().NodeInterface());
    zelkfuzz::EndInput();
    return 0;
}
