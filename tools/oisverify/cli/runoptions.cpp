// Options of "oisverify run"; see runoptions.h.
#include "cli/runoptions.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>

#include "cli/calibrationoptions.h"
#include "cli/optionreader.h"
#include "cli/summaryoptions.h"
#include "session/replayfolder.h"
#include "sim/chart.h"
#include "sim/simulator.h"

namespace oisverify
{

namespace
{

// Options that describe the simulated module and table; recorded frames have neither.
const char* const kSimulatorOptions[] = { "gain", "ideal-gain", "ois-off", "amplitude", "noise", "seed",
                                          "debug-images", "swap-axes" };
// Options composed into vendor.debug.camera.oisAlgoPara.
const char* const kAlgoParaOptions[] = { "freq", "fps", "drop", "debug-images", "dump-images" };

constexpr uint32_t kMinFrameSidePx = 16;
constexpr uint32_t kMaxFrameSidePx = 16384;
// The measurement library takes square crops of 256 to 2048 pixels a side.
constexpr int kMinCropSidePx = 256;
constexpr int kMaxCropSidePx = 2048;

bool CheckConflicts(OptionReader& reader, const chihost::NameValueList& userProps)
{
    for (const char* pName : kSimulatorOptions)
    {
        if (reader.Has("replay") && reader.Has(pName))
        {
            return reader.Fail("--" + std::string(pName) +
                               " describes the simulated module and table; it has no meaning with --replay");
        }
    }
    if (reader.Has("ois-off") && (reader.Has("gain") || reader.Has("ideal-gain")))
    {
        return reader.Fail("--ois-off contradicts --gain and --ideal-gain: with the OIS off no gain acts");
    }
    for (const char* pName : kAlgoParaOptions)
    {
        if (reader.Has(pName) && HasEntry(userProps, kAlgoParaProperty))
        {
            return reader.Fail("--" + std::string(pName) + " sets " + kAlgoParaProperty +
                               ", which --prop sets too; give one or the other");
        }
    }
    if (reader.Has("limit") && HasEntry(userProps, kGainCalibrateProperty))
    {
        return reader.Fail(std::string("--limit sets ") + kGainCalibrateProperty +
                           ", which --prop sets too; give one or the other");
    }
    return true;
}

bool ReadScenario(OptionReader& reader, sim::Scenario* pScenario)
{
    sim::OisModuleConfig& ois   = pScenario->ois;
    sim::ShakeConfig&     shake = pScenario->shake;
    ois.enabled                 = !reader.Has("ois-off");
    return reader.Pair("gain", 0.01, 10.0, &ois.gainX, &ois.gainY) &&
           reader.Pair("ideal-gain", 0.01, 10.0, &ois.idealGainX, &ois.idealGainY) &&
           reader.Pair("amplitude", 0.0, 1000.0, &shake.amplitudeXPx, &shake.amplitudeYPx) &&
           reader.Number("noise", 0.0, 50.0, &pScenario->sensor.noiseStdDn) &&
           reader.Whole("seed", 0, UINT64_MAX, &pScenario->sensor.seed);
}

bool ReadLayout(const Arguments& arguments, OptionReader& reader, FrameLayout* pLayout)
{
    if (arguments.Has("size"))
    {
        const std::string text = arguments.Value("size");
        unsigned          width = 0, height = 0;
        char              tail  = 0;
        if (sscanf(text.c_str(), "%ux%u%c", &width, &height, &tail) != 2 || width < kMinFrameSidePx ||
            height < kMinFrameSidePx || width > kMaxFrameSidePx || height > kMaxFrameSidePx || (width % 2) != 0 ||
            (height % 2) != 0 || text.find_first_not_of("0123456789x") != std::string::npos)
        {
            return reader.Fail("--size needs WIDTHxHEIGHT in even pixels from 16 to 16384, e.g. 1440x1080, got '" +
                               text + "'");
        }
        pLayout->width  = width;
        pLayout->height = height;
    }
    // Whole32 names the valid range, which starts at the frame's width or height.
    return reader.Whole32("stride", pLayout->width, kMaxFrameSidePx * 2, &pLayout->stride) &&
           reader.Whole32("scanline", pLayout->height, kMaxFrameSidePx * 2, &pLayout->scanline);
}

// The node measures a centred square crop of the frame: half the height of a 4:3 frame, two
// thirds of a 16:9 one; other shapes give no crop, and the measurement needs 256 to 2048 pixels.
bool CheckCrop(OptionReader& reader, const FrameLayout& layout)
{
    const std::string size = std::to_string(layout.width) + "x" + std::to_string(layout.height);
    const int         crop = sim::NodeCropSide(static_cast<int>(layout.width), static_cast<int>(layout.height));
    if (crop == 0)
    {
        return reader.Fail("the node crops only 4:3 or 16:9 frames (e.g. 1440x1080, 1920x1080), not " + size);
    }
    if (crop < kMinCropSidePx || crop > kMaxCropSidePx)
    {
        return reader.Fail("a " + size + " frame gives a " + std::to_string(crop) + "-pixel crop, but the measurement "
                           "takes 256 to 2048 pixels (4:3 frames from 683x512 to 5460x4096, 16:9 from 683x384)");
    }
    return true;
}

// The test parameters: composed from --freq/--fps/--drop and the mode flags, or read from the
// property the user gave.
bool ReadParams(OptionReader& reader, const chihost::NameValueList& userProps, RunConfig* pConfig)
{
    std::string error;
    if (HasEntry(userProps, kAlgoParaProperty))
    {
        pConfig->algoParaText = EffectiveProperty(userProps, kAlgoParaProperty);
        return ParseAlgoPara(pConfig->algoParaText, &pConfig->params, &error) || reader.Fail(error);
    }
    AlgoParams& params = pConfig->params;
    params.dropFrames  = reader.Has("replay") ? 0 : params.dropFrames;
    params.debugMode   = reader.Has("debug-images") ? 1 : 0;
    params.dumpImages  = reader.Has("dump-images") ? 1 : 0;
    if (!reader.Whole32("freq", 1, 500, &params.shakeFreqHz) || !reader.Whole32("fps", 1, 1000, &params.frameRateHz) ||
        !reader.Whole32("drop", 0, 100000, &params.dropFrames))
    {
        return false;
    }
    if (params.shakeFreqHz * 2 > params.frameRateHz)
    {
        return reader.Fail("--freq " + std::to_string(params.shakeFreqHz) + " Hz needs at least " +
                           std::to_string(params.shakeFreqHz * 2) + " fps: the node samples each shake period at "
                           "least twice");
    }
    DeriveVerdictFrames(&params);
    pConfig->algoParaText = ComposeAlgoPara(params);
    return true;
}

bool ReadLimit(OptionReader& reader, const chihost::NameValueList& properties, RunConfig* pConfig)
{
    if (!reader.Number("limit", -100.0, 100.0, &pConfig->srLimitDb))
    {
        return false;
    }
    std::string error;
    pConfig->srLimitSource = reader.Has("limit") ? "" : EffectiveProperty(properties, kGainCalibrateProperty);
    if (!reader.Has("limit") && !ParseSrLimit(pConfig->srLimitSource, &pConfig->srLimitDb, &error))
    {
        return reader.Fail(error);
    }
    return true;
}

// The module's gain property follows the simulated gains; the composed properties come before
// the user's, so a --prop of the same name still wins. A calibration run always states its search.
void ComposeProperties(bool limitGiven, const chihost::NameValueList& userProps, RunConfig* pConfig)
{
    chihost::NameValueList& properties = pConfig->device.root.buildProperties;
    char                    text[96];
    snprintf(text, sizeof(text), "%.6f,%.6f", pConfig->scenario.ois.gainX, pConfig->scenario.ois.gainY);
    properties.front().second = text;
    properties.insert(properties.begin() + 1, { kAlgoParaProperty, pConfig->algoParaText });
    const bool calibrating = pConfig->calibration.enabled && !HasEntry(userProps, kGainCalibrateProperty);
    if (limitGiven || calibrating)
    {
        // Without --calibrate the search fields keep the node's defaults.
        const std::string calibrate = ComposeGainCalibrate(pConfig->srLimitDb, pConfig->calibration);
        properties.insert(properties.begin() + 2, { kGainCalibrateProperty, calibrate });
        pConfig->srLimitSource = calibrate;
        pConfig->srLimitDb     = static_cast<float>(pConfig->srLimitDb);
    }
}

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    std::string     absolute = std::filesystem::absolute(path, error).lexically_normal().string();
    return error ? path : absolute;
}

// A replay folder of the node's own crop dumps carries its frame size, and a dump from frame 0 on
// holds the frames a default run dropped: it is replayed with the node's default drop, so the
// node measures the very frames it measured when it dumped them. A folder that cannot be listed
// is left to the session, which names the problem.
bool ReadReplayFolder(OptionReader& reader, const chihost::NameValueList& userProps, RunConfig* pConfig)
{
    ReplayFolder folder;
    if (!reader.Has("replay") || !InspectReplayFolder(AbsolutePath(reader.Value("replay")), pConfig->layout, &folder))
    {
        return true;
    }
    if (folder.kind == ReplayKind::NodeCrops)
    {
        for (const char* pName : { "size", "stride", "scanline" })
        {
            if (reader.Has(pName))
            {
                return reader.Fail("--" + std::string(pName) + " has no meaning with the node's crop dumps: each is " +
                                   std::to_string(folder.cropSide) + "x" + std::to_string(folder.cropSide) +
                                   " and replayed in a frame of its own");
            }
        }
        pConfig->layout           = LayoutForCrop(folder.cropSide);
        const uint64_t defaultDrop = AlgoParams().dropFrames;
        if (!reader.Has("drop") && !HasEntry(userProps, kAlgoParaProperty) && folder.firstFrame == 0 &&
            folder.files.size() >= defaultDrop + pConfig->params.verdictFrames + 1)
        {
            pConfig->params.dropFrames = static_cast<uint32_t>(defaultDrop);
            pConfig->algoParaText      = ComposeAlgoPara(pConfig->params);
        }
    }
    pConfig->replayDescription = DescribeReplayFolder(folder);
    return true;
}

} // namespace

std::vector<OptionSpec> RunOptionSpecs()
{
    std::vector<OptionSpec> specs = {
        { "gain", true, false, "X[,Y]", "gyro gain of the simulated module per axis (default 1.0)" },
        { "ideal-gain", true, false, "X[,Y]", "gain that cancels the shake exactly (default 1.0)" },
        { "ois-off", false, false, "", "switch the simulated OIS off (about 4 dB)" },
        { "amplitude", true, false, "PX[,PY]", "shake amplitude peak to peak on the crop (default 181.248)" },
        { "freq", true, false, "HZ", "shake frequency, whole Hz (default 4)" },
        { "fps", true, false, "N", "frame rate (default 60)" },
        { "drop", true, false, "N", "frames the node drops before measuring (default 120; 0 with --replay of NV12 frames)" },
        { "noise", true, false, "DN", "sensor read noise, standard deviation in luma steps (default 2.0)" },
        { "size", true, false, "WxH", "frame size, 4:3 or 16:9 (default 1440x1080)" },
        { "stride", true, false, "BYTES", "bytes per row of the frames (default: the width)" },
        { "scanline", true, false, "ROWS", "rows of the luma plane (default: the height)" },
        { "seed", true, false, "N", "seed of sensor noise and OIS residual (default 1)" },
        { "limit", true, false, "DB", "SR pass limit, written as the node's oisSpec (default 18.0)" },
        { "debug-images", false, false, "", "node debug mode: measure rendered 720x720 images from the device" },
        { "dump-images", false, false, "", "let the node dump every input crop (copied to the output folder)" },
        { "replay", true, false, "DIR", "measure recorded NV12 frames or the node's crop dumps, in natural name order" },
        { "out", true, false, "DIR", "output folder (default ./oisverify-out)" },
        { "progress-every", true, false, "N", "without a terminal, print progress every N frames (0: never)" },
    };
    for (const OptionSpec& option : CalibrationOptionSpecs())
    {
        specs.push_back(option);
    }
    for (const OptionSpec& option : SummaryOptionSpecs())
    {
        specs.push_back(option);
    }
    for (const OptionSpec& option : DeviceOptionSpecs())
    {
        specs.push_back(option);
    }
    return specs;
}

bool ParseRunConfig(const Arguments& arguments, RunConfig* pConfig, std::string* pError)
{
    OptionReader    reader(arguments, pError);
    RunConfig       config;
    chihost::Status status = ReadDeviceOptions(arguments, &config.device);
    if (!status)
    {
        return reader.Fail(status.Message());
    }
    chihost::NameValueList& properties = config.device.root.buildProperties;
    // The first entry is the module's gain property; everything after it came from --prop.
    const chihost::NameValueList userProps(properties.begin() + 1, properties.end());
    if (!CheckConflicts(reader, userProps) || !ReadScenario(reader, &config.scenario) ||
        !ReadLayout(arguments, reader, &config.layout) || !ReadParams(reader, userProps, &config) ||
        !ReadLimit(reader, properties, &config) || !ReadReplayFolder(reader, userProps, &config) ||
        !reader.Whole32("progress-every", 0, 1000000, &config.progressEvery))
    {
        return false;
    }
    config.source = arguments.Has("replay") ? FrameSource::Replay
                    : (config.params.debugMode == 1) ? FrameSource::DebugImages
                                                     : FrameSource::Simulator;
    if (config.source == FrameSource::Replay && config.params.debugMode == 1)
    {
        return reader.Fail("the node's debug mode measures its debug images, not the replayed frames");
    }
    if ((config.source != FrameSource::DebugImages && !CheckCrop(reader, config.layout)) ||
        !ReadCalibrationOptions(reader, userProps, &config))
    {
        return false;
    }
    ApplyLayoutAndParams(&config);
    const std::string scenarioError = sim::ValidateScenario(config.scenario);
    if (!scenarioError.empty())
    {
        return reader.Fail("the simulated session is not usable: " + scenarioError);
    }
    ComposeProperties(arguments.Has("limit"), userProps, &config);
    ComposeCalibrationDevice(&config);
    config.echoLog   = arguments.Has("log");
    config.replayDir = arguments.Has("replay") ? AbsolutePath(arguments.Value("replay")) : "";
    config.outDir    = AbsolutePath(arguments.Value("out", "oisverify-out"));
    if (!ReadSummaryOptions(arguments, &config, pError))
    {
        return false;
    }
    *pConfig         = config;
    return true;
}

bool ParseRunWords(const std::vector<std::string>& words, RunConfig* pConfig, std::string* pError)
{
    std::vector<std::string> storage = words;
    std::vector<char*>       argv    = { const_cast<char*>("run") };
    for (std::string& word : storage)
    {
        argv.push_back(&word[0]);
    }
    Arguments arguments;
    return arguments.Parse(static_cast<int>(argv.size()), argv.data(), 1, RunOptionSpecs(), pError) &&
           ParseRunConfig(arguments, pConfig, pError);
}

} // namespace oisverify
