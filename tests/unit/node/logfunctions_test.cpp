// The operation each log line names. Tools grep the node's log by operation, so a line logged by
// a private helper carries the operation that helper works for, never the helper's own name.
#include <gtest/gtest.h>

#include "chilog.h"
#include "enginerig.h"

namespace
{

using enginerig::EngineRig;
using enginerig::RigOptions;
using enginerig::Shifted;

enum class Scenario
{
    Search,       // a verification below the limit, then a whole gain search
    Dump,         // dump mode, one request with an input whose luma plane is too small
    CameraFrames, // camera frames measured, the same input
    NodeProperty, // Initialize with a node property asking for delayed notification
};

std::vector<chihost::CapturedLine> LinesOf(Scenario scenario)
{
    for (UINT32& mask : g_chiLogGroupEnable)
    {
        mask = 0xFFFFFFFF;
    }
    RigOptions options;
    switch (scenario)
    {
        case Scenario::Search:
        {
            options.calibrate = true;
            EngineRig rig(options);
            rig.StartVerifying();
            rig.Script(Shifted(0.0, 0.0, -100));
            rig.Script({ Shifted(0.0, 0.0), Shifted(50.0, 50.0), Shifted(0.0, 0.0), Shifted(50.0, 50.0),
                         Shifted(0.0, 0.0) });
            for (int target = 0; target < 9; target++)
            {
                rig.Script({ Shifted(0.0, 0.0), Shifted(1.0, 1.0), Shifted(0.0, 0.0), Shifted(1.0, 1.0),
                             Shifted(0.0, 0.0) });
            }
            EXPECT_EQ(rig.RunToEnd(), VerifyDoneState);
            rig.Node().SetOISVerifyState(VerifyingState);
            return rig.Log().Lines();
        }
        case Scenario::Dump:
        case Scenario::CameraFrames:
        {
            options.algoPara       = (scenario == Scenario::Dump) ? "1:1:1:0:4:60" : "1:0:0:0:4:60";
            options.lumaPlaneBytes = 1;
            EngineRig rig(options);
            rig.StartVerifying();
            rig.Request();
            return rig.Log().Lines();
        }
        case Scenario::NodeProperty:
        {
            testsupport::TempDeviceRoot root;
            chihost::LogCapture         log;
            ChiOisVerifyNode            node;
            const char                  value[] = "2048";
            CHINODEPROPERTY             property = { 1, value };
            CHINODECREATEINFO           createInfo = {};
            createInfo.size              = sizeof(createInfo);
            createInfo.nodePropertyCount = 1;
            createInfo.pNodeProperties   = &property;
            (void)node.Initialize(&createInfo);
            return log.Lines();
        }
    }
    return {};
}

struct NameCase
{
    Scenario    scenario;
    char        level;
    const char* messageStart;
    const char* operation;
};

void PrintTo(const NameCase& c, std::ostream* pOut) { *pOut << c.operation << ": " << c.messageStart; }

class OperationNames : public ::testing::TestWithParam<NameCase> {};

TEST_P(OperationNames, EveryMatchingLineNamesTheOperation)
{
    size_t matched = 0;
    for (const chihost::CapturedLine& line : LinesOf(GetParam().scenario))
    {
        if ((line.sink == chihost::CapturedLine::ChiLog) && (line.level == GetParam().level) &&
            (line.message.rfind(GetParam().messageStart, 0) == 0))
        {
            matched++;
            EXPECT_EQ(line.function, GetParam().operation) << line.message;
        }
    }
    EXPECT_GT(matched, 0u) << "no line starts with " << GetParam().messageStart;
}

// One representative line of every operation whose lines come (also) from a helper.
INSTANTIATE_TEST_SUITE_P(
    Lines, OperationNames,
    ::testing::Values(
        NameCase{ Scenario::Search, 'I', "algoParaInfo: ", "InitParam" },
        NameCase{ Scenario::Search, 'I', "oisPropInfo = ", "InitParam" },
        NameCase{ Scenario::NodeProperty, 'I', "Delayed processing notifying enabled", "Initialize" },
        NameCase{ Scenario::Search, 'I', "create file /data/vendor/camera/oisverify/oisGyroGainCalibrate.txt",
                  "Initialize" },
        NameCase{ Scenario::Dump, 'I', "open dir fail errno = 2 data/vendor/camera/oisverify/dumpImage/",
                  "PrepareDumpImage" },
        NameCase{ Scenario::Dump, 'I', "create dir data/vendor/camera/oisverify/dumpImage/", "PrepareDumpImage" },
        NameCase{ Scenario::Search, 'I', "read file /data/vendor/camera/ois/frame0.yuv  iamge = ", "ReadDebugImage" },
        NameCase{ Scenario::Search, 'I', "VerifyDoneState horSR = ", "SetOISVerifyState" },
        NameCase{ Scenario::Search, 'I', "read image from imageVector[0]", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'I', "algo return = ", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'I', "put frameNum = ", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'I', "set m_execTimestamp = ", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'V', "the location of the feature point ", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'E', "four circles were not found in the input image", "ExecOISVerifyAlgo" },
        NameCase{ Scenario::CameraFrames, 'E', "luma plane of 1 bytes cannot hold 1440x1080 with stride 1440",
                  "ExecOISVerifyAlgo" },
        NameCase{ Scenario::Search, 'I', "m_oisVerifyState changed to 21", "OISCalibrate" },
        NameCase{ Scenario::Search, 'I', "Set gain target oisCalibCnt = ", "OISCalibrate" },
        NameCase{ Scenario::Search, 'I', "Search complete, changed state to 24", "OISCalibrate" },
        NameCase{ Scenario::Search, 'I', "Wait finish, changed state to 23", "OISCalibrate" },
        NameCase{ Scenario::Search, 'I', "Ois Calibrate complete, exit", "OISCalibrate" },
        NameCase{ Scenario::Search, 'I', "select Gain write to persist, vertorSize = 9 ", "OISCalibrate" },
        NameCase{ Scenario::Search, 'V', "oisCalibCnt = 0 Gain[", "IsVerifyDone" },
        NameCase{ Scenario::Dump, 'E', "luma plane of 1 bytes cannot hold 1440x1080 with stride 1440",
                  "DumpInputImage" },
        NameCase{ Scenario::Dump, 'E', "open image dump file failed. frameNum: 0,w*h 1440*1080 stride 1440 scanline 0",
                  "DumpInputImage" }));

} // namespace
