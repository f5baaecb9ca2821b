// The emulated device of the node fuzz targets; see nodefuzzhost.h.
#include "nodefuzzhost.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <android/log.h>

#include "chihost/emulator/deviceroot.h"
#include "chihost/hostclock.h"
#include "chihost/hostlog.h"
#include "logicalcameratable.h"
#include "nodefuzzimages.h"
#include "oishighfps.h"

namespace zelkfuzz
{

const char* const kRole0GainProperty = "persist.vendor.camera.oisgyrogain.w";

namespace
{

const char* const kOisVerifySection  = "com.zelk.node.oisverify";
const uint64_t    kClockStartNs      = 1000000000ull;
const uint32_t    kDebugImageSidePx  = 720;
const unsigned    kAllGroups         = 0xFFFFFFFFu;

struct Device
{
    chihost::DeviceRoot  root;
    chihost::HostSession session;
    PFNCHINODEENTRY      pEntry      = nullptr;
    void*                hKeepOis    = nullptr;
    void*                hKeepTable  = nullptr;
    bool                 calibration = false;
    std::vector<UINT64>  frames;
    FILE*                pReport     = nullptr; // stderr as the process started
    FILE*                pOutput     = nullptr; // stdout as the process started
    FILE*                pMuted      = nullptr; // /dev/null
};

Device* g_pDevice = nullptr;

Device& TheDevice()
{
    if (g_pDevice == nullptr)
    {
        Fail("nodefuzzhost", "the device is used before SetUpDevice");
    }
    return *g_pDevice;
}

void Check(const chihost::Status& status, const char* pWhat)
{
    if (!status)
    {
        Fail("nodefuzzhost", (std::string(pWhat) + ": " + status.Message()).c_str());
    }
}

void DiscardAndroidLog(const __android_logger_data* pData, const char* pMessage)
{
    (void)pData;
    (void)pMessage;
}

// ZELK_FUZZ_LOG=1 keeps every line on stderr, for replaying one input.
bool Verbose()
{
    const char* pLog = getenv("ZELK_FUZZ_LOG");
    return (pLog != nullptr) && (strcmp(pLog, "1") == 0);
}

chihost::NameValueList OverrideSettings(bool calibration)
{
    // Errors stay on so that their formatting runs on fuzzed values; nothing is printed.
    const char* pOthers = Verbose() ? "0xFFFFFFFF" : "0";
    return {
        { "enableOISGyroGainCalibration", calibration ? "TRUE" : "FALSE" },
        { "logErrorMask", "0xFFFFFFFF" },
        { "logWarningMask", pOthers },
        { "logInfoMask", pOthers },
        { "logVerboseMask", pOthers },
        { "enableSystemLog", Verbose() ? "FALSE" : "TRUE" },
    };
}

// Two 720 x 720 chart frames, the second shifted by a few pixels, for the debug-image source.
void WriteDebugImages(const chihost::DeviceRoot& root)
{
    const size_t lumaBytes = static_cast<size_t>(kDebugImageSidePx) * kDebugImageSidePx;
    std::vector<uint8_t> image(lumaBytes * 3 / 2, 0x80);
    for (int index = 0; index < 2; index++)
    {
        ChartStyle style;
        style.shiftX = 3 * index;
        style.shiftY = -2 * index;
        DrawChart(image.data(), lumaBytes, kDebugImageSidePx, kDebugImageSidePx, kDebugImageSidePx, style);
        const std::string path = root.Map("/data/vendor/camera/ois/chart_000" + std::to_string(index) + ".yuv");
        FILE* pFile = fopen(path.c_str(), "wb");
        if ((pFile == nullptr) || (fwrite(image.data(), 1, image.size(), pFile) != image.size()))
        {
            Fail("nodefuzzhost", "cannot write the debug images");
        }
        fclose(pFile);
    }
}

void CloseDevice()
{
    if (g_pDevice == nullptr)
    {
        return;
    }
    g_pDevice->session.Close();
    dlclose(g_pDevice->hKeepOis);
    dlclose(g_pDevice->hKeepTable);
    g_pDevice->root.Close();
    if (g_pDevice->pMuted != nullptr)
    {
        fclose(g_pDevice->pMuted);
    }
    delete g_pDevice;
    g_pDevice = nullptr;
}

} // namespace

void SetUpDevice(bool calibration)
{
    if (g_pDevice != nullptr)
    {
        return;
    }
    g_pDevice = new Device;
    Device& device = *g_pDevice;
    atexit(CloseDevice);
    device.pReport = stderr;
    device.pOutput = stdout;
    device.pMuted  = Verbose() ? nullptr : fopen("/dev/null", "w");

    chihost::DeviceRootOptions options;
    options.oisLibrarySource         = ZELK_FUZZ_OIS_LIBRARY;
    options.logicalCameraTableSource = ZELK_FUZZ_CAMERA_TABLE_LIBRARY;
    options.buildProperties          = { { kRole0GainProperty, "1.0,1.0" } };
    options.overrideSettings         = OverrideSettings(calibration);
    device.calibration               = calibration;
    Check(device.root.Open(options), "device root");
    WriteDebugImages(device.root);

    if (!Verbose())
    {
        ChiHostLogSetEcho(0);
        __android_log_set_logger(DiscardAndroidLog);
        ChiHostLogApplySettings(kAllGroups, 0, 0, 0, 1);
    }

    // Held for the whole run so that a node's unmapping never unloads them between inputs.
    device.hKeepOis   = dlopen(OIS_HIGH_FPS_LIBRARY_PATH, RTLD_NOW);
    device.hKeepTable = dlopen(LOGICAL_CAMERA_TABLE_LIBRARY_PATH, RTLD_NOW);
    if ((device.hKeepOis == nullptr) || (device.hKeepTable == nullptr))
    {
        Fail("nodefuzzhost", "the run-time libraries in the device root do not load");
    }

    Check(device.session.Open(ZELK_FUZZ_NODE_LIBRARY, chihost::HostSessionOptions()), "host session");
    void* hNode = dlopen(ZELK_FUZZ_NODE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    device.pEntry = (hNode != nullptr) ? reinterpret_cast<PFNCHINODEENTRY>(dlsym(hNode, "ChiNodeEntry")) : nullptr;
    if (device.pEntry == nullptr)
    {
        Fail("nodefuzzhost", "ChiNodeEntry not found in the loaded node library");
    }
}

void SetCalibration(bool calibration)
{
    Device& device = TheDevice();
    if (device.calibration != calibration)
    {
        Check(device.root.WriteOverrideSettings(OverrideSettings(calibration)), "override settings");
        device.calibration = calibration;
    }
}

chihost::HostSession& Session()
{
    return TheDevice().session;
}

std::string MapDevicePath(const std::string& devicePath)
{
    return TheDevice().root.Map(devicePath);
}

const CHINODECALLBACKS& Callbacks()
{
    return TheDevice().session.Callbacks();
}

PFNCHINODEENTRY NodeEntry()
{
    return TheDevice().pEntry;
}

CHINODECREATEINFO DefaultCreateInfo()
{
    CHINODECREATEINFO info;
    memset(&info, 0, sizeof(info));
    info.size          = sizeof(info);
    info.hChiSession   = Session().Handle();
    info.nodeCaps.size = sizeof(CHINODECAPSINFO);
    return info;
}

CHIHANDLE CreateNode(CDKResult* pResult)
{
    CHINODECREATEINFO info   = DefaultCreateInfo();
    CDKResult         result = Callbacks().pCreate(&info);
    if (pResult != nullptr)
    {
        *pResult = result;
    }
    return (result == CDKResultSuccess) ? info.phNodeSession : nullptr;
}

void DestroyNode(CHIHANDLE hNode)
{
    CHINODEDESTROYINFO info = { sizeof(CHINODEDESTROYINFO), hNode };
    if (Callbacks().pDestroy(&info) != CDKResultSuccess)
    {
        Fail("nodefuzzhost", "a full destroy record of a live node was refused");
    }
}

void SubmitRequest(const char* pTarget, CHIHANDLE hNode, UINT64 frameNum, bool writeState, INT32 state,
                   std::vector<CHINODEBUFFERHANDLE>* pInputs)
{
    NoteFrame(frameNum);
    if (writeState)
    {
        Check(Session().WriteInputValue(frameNum, kOisVerifySection, "oisState", state), "oisState setting");
    }
    AdvanceClock();

    CHINODEPROCESSREQUESTINFO request;
    memset(&request, 0, sizeof(request));
    request.size         = sizeof(request);
    request.hNodeSession = hNode;
    request.frameNum     = frameNum;
    if ((pInputs != nullptr) && !pInputs->empty())
    {
        request.inputNum      = static_cast<UINT32>(pInputs->size());
        request.phInputBuffer = pInputs->data();
    }
    if (Callbacks().pProcessRequest(&request) != CDKResultSuccess)
    {
        Fail(pTarget, "a full request record was refused");
    }
}

void NoteFrame(UINT64 frameNum)
{
    TheDevice().frames.push_back(frameNum);
}

void BeginInput()
{
    ChiHostClockUseSimulated(1, kClockStartNs);
    Device& device = TheDevice();
    if (device.pMuted != nullptr)
    {
        stderr = device.pMuted;
        stdout = device.pMuted;
    }
}

void AdvanceClock()
{
    ChiHostClockAdvance(kFramePeriodNs);
}

void EndInput()
{
    Device& device = TheDevice();
    for (UINT64 frameNum : device.frames)
    {
        device.session.Pools().ForgetRequest(frameNum);
    }
    device.frames.clear();
    device.session.Pools().ClearSetCalls();
    stderr = device.pReport;
    stdout = device.pOutput;
}

void Fail(const char* pTarget, const char* pWhat)
{
    FILE* pReport = ((g_pDevice != nullptr) && (g_pDevice->pReport != nullptr)) ? g_pDevice->pReport : stderr;
    fprintf(pReport, "%s: property violated: %s\n", pTarget, pWhat);
    fflush(pReport);
    abort();
}

uint8_t FuzzReader::U8()
{
    return (m_offset < m_size) ? m_pData[m_offset++] : 0;
}

uint16_t FuzzReader::U16()
{
    uint16_t low = U8();
    return static_cast<uint16_t>(low | (static_cast<uint16_t>(U8()) << 8));
}

uint32_t FuzzReader::U32()
{
    uint32_t low = U16();
    return low | (static_cast<uint32_t>(U16()) << 16);
}

uint64_t FuzzReader::U64()
{
    uint64_t low = U32();
    return low | (static_cast<uint64_t>(U32()) << 32);
}

std::string FuzzReader::Text(size_t maxBytes)
{
    std::string text;
    while (m_offset < m_size)
    {
        const char byte = static_cast<char>(m_pData[m_offset++]);
        if (byte == '\0')
        {
            break;
        }
        if (text.size() < maxBytes)
        {
            text.push_back(byte);
        }
    }
    return text;
}

void FuzzReader::Fill(void* pOut, size_t size)
{
    const size_t available = (Remaining() < size) ? Remaining() : size;
    if (available > 0)
    {
        memcpy(pOut, m_pData + m_offset, available);
    }
    memset(static_cast<uint8_t*>(pOut) + available, 0, size - available);
    m_offset += available;
}

} // namespace zelkfuzz
