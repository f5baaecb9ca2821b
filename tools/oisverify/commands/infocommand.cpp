// "oisverify info": loads the node library in the emulated phone, shows what the node tells a
// camera framework (capabilities, vendor-tag section), creates a node from the device's
// properties, shows the test parameters the node derived from them, and destroys it again.
#include <stdio.h>
#include <string.h>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/vendortagregistry.h"
#include "commands/commands.h"
#include "session/emulateddevice.h"

namespace oisverify
{

namespace
{

const char* TagTypeName(UINT8 type)
{
    static const char* const kNames[] = { "byte", "int32", "float", "int64", "double", "rational" };
    return (type < sizeof(kNames) / sizeof(kNames[0])) ? kNames[type] : "unknown";
}

void PrintCapabilities(const CHINODECALLBACKS& callbacks)
{
    CHINODECAPSINFO caps = { sizeof(CHINODECAPSINFO), 0 };
    CDKResult       result = callbacks.pGetCapabilities(&caps);
    printf("Capabilities     mask 0x%X (%u)%s\n", caps.nodeCapsMask, caps.nodeCapsMask,
           (result == CDKResultSuccess) ? "" : "  [query failed]");
}

void PrintVendorTags(const CHINODECALLBACKS& callbacks)
{
    CHIQUERYVENDORTAG query = { sizeof(CHIQUERYVENDORTAG), nullptr };
    if (callbacks.pQueryVendorTag(&query) != CDKResultSuccess || query.pVendorTagInfo == nullptr)
    {
        printf("Vendor tags      [query failed]\n");
        return;
    }
    const CHIVENDORTAGINFO& info = *query.pVendorTagInfo;
    for (UINT32 s = 0; s < info.numSections; s++)
    {
        const CHIVENDORTAGSECTIONDATA& section = info.pVendorTagDataArray[s];
        UINT32 base = 0;
        chihost::VendorTagRegistry::Instance().FindSectionBase(section.pVendorTagSectionName, &base);
        printf("Vendor tags      section \"%s\", %u tags, base 0x%08X, visibility 0x%X\n",
               section.pVendorTagSectionName, section.numTags, base, section.visibility);
        for (UINT32 t = 0; t < section.numTags; t++)
        {
            const CHIVENDORTAGDATA& tag = section.pVendorTagData[t];
            printf("                   0x%08X  %-18s %s x%zu\n", base + section.firstVendorTag + t,
                   tag.pVendorTagName, TagTypeName(tag.vendorTagType), tag.numUnits);
        }
    }
}

// The node reports the parameters it derived in its log; show them as a table.
bool PrintAlgoParameters(const chihost::LogCapture& log)
{
    auto lines = log.ChiLinesStartingWith("algoParaInfo: ");
    if (lines.empty())
    {
        return false;
    }
    const std::string& text  = lines.back().message;
    size_t             split = text.find(" m_isDebugMode ");
    int debug = 0, dump = 0, drop = 0, freq = 0, minFrames = 0, fps = 0, limitMs = 0;
    if (split == std::string::npos ||
        sscanf(text.c_str() + split, " m_isDebugMode %d m_DumpImageProp %d m_dropFrameNum %d m_oisTestFreq %d "
               "m_minFrameCount %d m_targetFps %d m_maxVerifyTime %d",
               &debug, &dump, &drop, &freq, &minFrames, &fps, &limitMs) != 7)
    {
        return false;
    }
    printf("Test parameters  vendor.debug.camera.oisAlgoPara = \"%s\"\n", text.substr(14, split - 14).c_str());
    printf("                   debug mode         %d\n", debug);
    printf("                   dump images        %d\n", dump);
    printf("                   dropped frames     %d\n", drop);
    printf("                   shake frequency    %d Hz\n", freq);
    printf("                   frame rate         %d fps\n", fps);
    printf("                   frames for verdict %d\n", minFrames);
    printf("                   time limit         %d ms\n", limitMs);
    return true;
}

bool PrintCalibrationParameters(const chihost::LogCapture& log)
{
    auto lines = log.ChiLinesStartingWith("oisPropInfo = ");
    if (lines.empty())
    {
        return false;
    }
    const std::string& text  = lines.back().message;
    size_t             split = text.find(" m_oisCalibPara.roleId ");
    int   role = 0, axis = 0, wait = 0;
    float srLimit = 0, step = 0, limit = 0;
    if (split == std::string::npos ||
        sscanf(text.c_str() + split, " m_oisCalibPara.roleId %d calibSingleAxis %d oisSpec %f oisCalibGainStep %f "
               "oisCalibGainLimit %f waitApplyFrameCnt %d", &role, &axis, &srLimit, &step, &limit, &wait) != 6)
    {
        return false;
    }
    printf("Calibration      vendor.debug.camera.oisGainCalibrate = \"%s\"\n", text.substr(14, split - 14).c_str());
    printf("                   camera role        %d\n", role);
    printf("                   axes               %s\n", axis == 1 ? "X only" : axis == 2 ? "Y only" : "both");
    printf("                   SR pass limit      %.2f dB\n", srLimit);
    printf("                   gain step          %.2f of base\n", step);
    printf("                   gain limit         +/-%.2f of base\n", limit);
    printf("                   settle frames      %d\n", wait);
    return true;
}

void PrintModuleGains(const chihost::LogCapture& log)
{
    auto lines = log.ChiLinesStartingWith("Get gain prop info ");
    if (!lines.empty())
    {
        printf("Module gains     %s\n", lines.back().message.substr(19).c_str());
    }
}

void PrintNodeErrors(const chihost::LogCapture& log)
{
    for (const chihost::CapturedLine& line : log.Lines())
    {
        if (line.sink == chihost::CapturedLine::ChiLog && line.level == 'E')
        {
            printf("                   node error: %s\n", line.message.c_str());
        }
    }
}

} // namespace

int RunInfo(int argc, char** argv, int first)
{
    std::vector<OptionSpec> specs = DeviceOptionSpecs();
    if (WantsHelp(argc, argv, first))
    {
        printf("usage: oisverify info [OPTIONS]\n\nOptions:\n%s", DescribeOptions(specs).c_str());
        return 0;
    }
    Arguments   arguments;
    std::string error;
    if (!arguments.Parse(argc, argv, first, specs, &error))
    {
        fprintf(stderr, "oisverify info: %s\n\nOptions:\n%s", error.c_str(), DescribeOptions(specs).c_str());
        return 2;
    }

    chihost::LogCapture log(arguments.Has("log"));
    EmulatedDevice      device;
    chihost::Status     status = device.Open(arguments);
    if (!status)
    {
        fprintf(stderr, "oisverify info: %s\n", status.Message().c_str());
        return 1;
    }
    printf("Node library     %s\n", device.NodeLibraryPath().c_str());
    printf("Device root      %s%s\n", device.Root().Path().c_str(),
           (arguments.Has("root") || arguments.Has("keep-root")) ? "" : " (removed on exit)");
    PrintCapabilities(device.Session().Callbacks());
    PrintVendorTags(device.Session().Callbacks());

    chihost::NodeCreateOutcome created = device.Session().CreateNode({}, 0, 0, 0);
    printf("Node             create result %d, handle %p\n", created.result, created.hNode);
    bool parsed = PrintAlgoParameters(log) && PrintCalibrationParameters(log);
    PrintModuleGains(log);
    if (created.result != CDKResultSuccess)
    {
        PrintNodeErrors(log);
        return 1;
    }
    printf("Node             destroy result %d\n", device.Session().DestroyNode(created.hNode));
    if (!parsed)
    {
        fprintf(stderr, "oisverify info: the node did not report its parameters\n");
        return 1;
    }
    return 0;
}

} // namespace oisverify
