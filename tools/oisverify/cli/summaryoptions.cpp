// Options of the run's summary document; see summaryoptions.h.
#include "cli/summaryoptions.h"

#include <limits.h>
#include <unistd.h>

#include <filesystem>

#include "cli/calibrationoptions.h"
#include "oiscalibrationfile.h"
#include "report/persistrecords.h"

namespace oisverify
{

namespace
{

constexpr size_t kMaxIdChars = 128;

// IDs go into file names and tables of a population: printable ASCII only, so they show as typed.
bool ValidId(const std::string& text)
{
    if (text.empty() || text.size() > kMaxIdChars)
    {
        return false;
    }
    for (unsigned char c : text)
    {
        if (c < 0x20 || c > 0x7E)
        {
            return false;
        }
    }
    return true;
}

// The fuse ID the node reads: a calibration run's, or the user's property in a verification run.
std::string ModuleFuseId(const RunConfig& config)
{
    if (config.calibration.enabled)
    {
        return config.calibration.fuseId;
    }
    const chihost::NameValueList& properties = config.device.root.buildProperties;
    std::string                   id;
    if (HasEntry(properties, kFuseIdProperty) &&
        OISCalibrationFile::ParseFuseIdValue(EffectiveProperty(properties, kFuseIdProperty), &id))
    {
        return id;
    }
    return "";
}

} // namespace

std::vector<OptionSpec> SummaryOptionSpecs()
{
    return {
        { "json", true, false, "FILE|-", "write the run's summary as JSON to FILE; - writes it to stdout (the text "
                                         "goes to stderr)" },
        { "module-id", true, false, "ID", "module ID in the summary (default: the module's fuse ID)" },
        { "station", true, false, "NAME", "test station in the summary (default: the host name)" },
    };
}

bool ReadSummaryOptions(const Arguments& arguments, RunConfig* pConfig, std::string* pError)
{
    SummaryTarget& summary = pConfig->summary;
    if (arguments.Has("json"))
    {
        const std::string path = arguments.Value("json");
        if (path.empty())
        {
            *pError = "--json needs a file name, or - for stdout";
            return false;
        }
        // Relative to the current directory: the device root becomes the working directory later.
        std::error_code error;
        const std::string absolute = std::filesystem::absolute(path, error).lexically_normal().string();
        summary.jsonPath = (path == "-") ? path : (error ? path : absolute);
    }
    summary.moduleId = arguments.Has("module-id") ? arguments.Value("module-id") : ModuleFuseId(*pConfig);
    summary.station  = arguments.Has("station") ? arguments.Value("station") : HostName();
    for (const char* pName : { "module-id", "station" })
    {
        if (arguments.Has(pName) && !ValidId(arguments.Value(pName)))
        {
            *pError = "--" + std::string(pName) + " needs 1 to 128 printable ASCII characters, got '" +
                      ShownField(arguments.Value(pName)) + "'";
            return false;
        }
    }
    return true;
}

std::string HostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof(name) - 1) != 0)
    {
        return "";
    }
    return name;
}

} // namespace oisverify
