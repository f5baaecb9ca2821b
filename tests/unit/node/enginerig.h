// A node driven request by request without a camera: debug mode with one stored image, the
// measurement library replaced by a script of results, the CamX clock simulated, and the host's
// metadata calls answered by the rig, which keeps the state each request published.
#ifndef ZELK_TESTS_UNIT_NODE_ENGINERIG_H
#define ZELK_TESTS_UNIT_NODE_ENGINERIG_H

#include <deque>
#include <string>
#include <vector>

#include "androidservices.h"
#include "chihost/emulator/logcapture.h"
#include "chihost/hostclock.h"
#include "chihost/hostproperties.h"
#include "nodetestpeer.h"
#include "tempdeviceroot.h"

namespace enginerig
{

// One scripted algorithm run: its return code and the four circle centres.
struct Run
{
    INT32          code;
    OISPointResult points;
};

// Every centre at offset (x, y) from a fixed layout: x moves the upper and lower circles
// horizontally, y the left and right ones vertically, so the ring's spread of x and y is the
// horizontal and vertical blur.
inline Run Shifted(DOUBLE x, DOUBLE y, INT32 code = 0)
{
    return { code, { 360.0 + x, 180.0, 360.0 + x, 540.0, 180.0, 360.0 + y, 540.0, 360.0 + y } };
}

struct RigOptions
{
    std::string algoPara           = "1:1:0:0:4:60"; // debug mode, no dump, nothing dropped
    std::string calibPara          = "0:0:18.0:0.05:0.2:2";
    UINT32      minFrameCount      = 4;    // also the ring's size
    UINT32      maxVerifyTimeMs    = 1000;
    bool        calibrate          = false;
    INT32       gyroGainAndSRMatch = 0;
    FLOAT       baseGainX          = 1.0f;
    FLOAT       baseGainY          = 1.0f;
    std::string fuseId             = "RIG00001"; // role 0's module; empty: none
    SIZE_T      lumaPlaneBytes     = 0;          // size the input claims for its luma plane; 0: not given
    // Files (device path, content) placed on the device before Initialize.
    std::vector<std::pair<std::string, std::string>> files;
};

class EngineRig
{
public:
    static const UINT64 kFramePeriodNs = 16000000; // 16 ms per request unless a test says otherwise

    explicit EngineRig(const RigOptions& options = RigOptions()) : m_options(options)
    {
        s_pCurrent = this;
        ChiHostPropertiesClear();
        property_set("vendor.debug.camera.oisAlgoPara", options.algoPara.c_str());
        property_set("vendor.debug.camera.oisGainCalibrate", options.calibPara.c_str());
        if (!options.fuseId.empty())
        {
            char length[24];
            snprintf(length, sizeof(length), "%04zu", options.fuseId.size());
            property_set("vendor.camera.sensor.w.fuseID", ("FUSE" + std::string(length) + options.fuseId).c_str());
        }
        m_root.MakeDirs("/mnt/vendor/persist/camera");
        m_root.WriteFile("/data/vendor/camera/ois/frame0.yuv", std::string(720 * 720, '\x40'));
        for (const auto& file : options.files)
        {
            m_root.WriteFile(file.first, file.second);
        }

        m_savedInterface                  = g_chiNodeInterface;
        g_chiNodeInterface                = CHINODEINTERFACE();
        g_chiNodeInterface.size           = sizeof(CHINODEINTERFACE);
        g_chiNodeInterface.pSetMetadata   = &EngineRig::OnSetMetadata;
        ChiHostClockUseSimulated(1, 1000000000ull);

        CHINODECREATEINFO createInfo = {};
        createInfo.size              = sizeof(createInfo);
        (void)m_node.Initialize(&createInfo); // the two libraries are missing here; the rig replaces them
        ChiOisVerifyNodeTestPeer::UseAlgorithm(m_node, &EngineRig::Algorithm);
        ChiOisVerifyNodeTestPeer::SetVerdictLimits(m_node, options.minFrameCount, options.maxVerifyTimeMs);
        ChiOisVerifyNodeTestPeer::SetBaseGains(m_node, options.baseGainX, options.baseGainY);
        if (options.calibrate)
        {
            ChiOisVerifyNodeTestPeer::EnableCalibration(m_node, options.gyroGainAndSRMatch);
        }
    }

    ~EngineRig()
    {
        ChiHostClockUseSimulated(0, 0);
        g_chiNodeInterface = m_savedInterface;
        s_pCurrent         = nullptr;
    }

    // The app's steps to measuring: 1 then 3.
    void StartVerifying()
    {
        m_node.SetOISVerifyState(StartState);
        m_node.SetOISVerifyState(VerifyingState);
    }

    void Script(const Run& run) { m_script.push_back(run); }
    void Script(const std::vector<Run>& runs) { m_script.insert(m_script.end(), runs.begin(), runs.end()); }

    // One capture request with one NV12 input, after the clock moved by advanceNs. Returns the
    // state the request published. An empty script makes the algorithm fail with -100.
    INT32 Request(UINT64 advanceNs = kFramePeriodNs)
    {
        ChiHostClockAdvance(advanceNs);
        CHIIMAGELIST buffer   = {};
        buffer.size           = sizeof(buffer);
        buffer.format.format  = ChiFormatYUV420NV12;
        buffer.format.width   = 1440;
        buffer.format.height  = 1080;
        buffer.imageCount     = 1;
        buffer.planeSize[0]   = m_options.lumaPlaneBytes;
        buffer.format.formatParams.yuvFormat[0].planeStride = 1440;
        CHINODEBUFFERHANDLE input[1] = { &buffer };
        CHINODEPROCESSREQUESTINFO request = {};
        request.size          = sizeof(request);
        request.hNodeSession  = &m_node;
        request.frameNum      = m_frameNum++;
        request.inputNum      = 1;
        request.phInputBuffer = input;
        m_node.ProcessRequest(&request);
        return m_published.empty() ? 0 : m_published.back();
    }

    // Requests until the state is final (4 or negative) or limit requests were made.
    INT32 RunToEnd(UINT32 limit = 2000)
    {
        for (UINT32 i = 0; i < limit; i++)
        {
            const INT32 state = m_node.GetOISVerifyState();
            if ((state == VerifyDoneState) || (state < 0))
            {
                break;
            }
            Request();
        }
        return m_node.GetOISVerifyState();
    }

    ChiOisVerifyNode&            Node() { return m_node; }
    testsupport::TempDeviceRoot& Root() { return m_root; }
    chihost::LogCapture&         Log() { return m_log; }
    const std::vector<INT32>&    Published() const { return m_published; }
    std::string Report() const { return m_root.ReadFile("/data/vendor/camera/oisverify/oisVerify.json"); }
    std::string PersistFile() const { return m_root.ReadFile("/mnt/vendor/persist/camera/com.zelk.oiscal.bin"); }
    size_t      ScriptLeft() const { return m_script.size(); }

private:
    static INT32 Algorithm(UINT8* /*pImage*/, OISImageSize /*size*/, OISPointResult* pResult)
    {
        EngineRig* pRig = s_pCurrent;
        if ((pRig == nullptr) || pRig->m_script.empty())
        {
            *pResult = Shifted(0.0, 0.0).points;
            return -100;
        }
        const Run run = pRig->m_script.front();
        pRig->m_script.pop_front();
        *pResult = run.points;
        return run.code;
    }

    static CDKResult OnSetMetadata(CHIMETADATAINFO* pInfo)
    {
        if ((s_pCurrent != nullptr) && (pInfo != nullptr) && (pInfo->tagNum >= 2))
        {
            s_pCurrent->m_published.push_back(*static_cast<const INT32*>(pInfo->pTagData[1].pData));
        }
        return CDKResultSuccess;
    }

    static EngineRig* s_pCurrent;

    RigOptions                  m_options;
    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
    CHINODEINTERFACE            m_savedInterface;
    ChiOisVerifyNode            m_node;
    std::deque<Run>             m_script;
    std::vector<INT32>          m_published;
    UINT64                      m_frameNum = 0;
};

inline EngineRig* EngineRig::s_pCurrent = nullptr;

} // namespace enginerig

#endif // ZELK_TESTS_UNIT_NODE_ENGINERIG_H
