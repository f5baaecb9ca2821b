// The tool's files in the output folder; see runoutput.h.
#include "report/runoutput.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "figures/calibrationfigure.h"
#include "figures/chartpicture.h"
#include "figures/svgfigures.h"
#include "oiscalibrationfile.h"
#include "report/calibrationreport.h"
#include "report/htmlsummary.h"

namespace oisverify
{

namespace fs = std::filesystem;

const char* const kOutputListName  = "oisverify-files.txt";
const char* const kInterruptedName = "INTERRUPTED";

namespace
{

const char kCropFileName[]   = "oisverify_crop.yuv";
const char kOutputListHead[] = "# The files of the oisverify run in this folder; the next run into it removes them.\n";
// A list longer than this is not one the tool wrote.
constexpr uintmax_t kMaxOutputListBytes = 1u << 20;

// Never through a symbolic link: a link in the output folder may point anywhere.
chihost::Status WriteText(const std::string& path, const std::string& text)
{
    const int fd    = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    FILE*     pFile = (fd >= 0) ? fdopen(fd, "wb") : nullptr;
    if (pFile == nullptr && fd >= 0)
    {
        close(fd);
    }
    if (pFile == nullptr)
    {
        return chihost::Status::Error("cannot write " + path + ": " + strerror(errno));
    }
    const bool written = fwrite(text.data(), 1, text.size(), pFile) == text.size();
    const int  err     = errno;
    if (fclose(pFile) != 0 || !written)
    {
        return chihost::Status::Error("cannot write " + path + ": " + strerror(written ? errno : err));
    }
    return chihost::Status::Ok();
}

void AppendCentres(std::string* pRow, const sim::FourCentres& c)
{
    char text[160];
    snprintf(text, sizeof(text), ",%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f", c.up.x, c.up.y, c.down.x, c.down.y,
             c.left.x, c.left.y, c.right.x, c.right.y);
    *pRow += text;
}

std::string ReadSmallFile(const fs::path& path, uintmax_t maxBytes, std::string* pError)
{
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    if (error || size > maxBytes)
    {
        *pError = error ? error.message() : std::to_string(size) + " bytes is more than expected";
        return "";
    }
    std::ifstream      in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A listed name the tool could have written: relative, no "." or "..", and inside the folder
// through real folders only (a linked folder could lead anywhere).
bool IsOwnName(const fs::path& outDir, const fs::path& name)
{
    if (name.empty() || name.is_absolute() || name.has_root_name())
    {
        return false;
    }
    std::error_code error;
    fs::path        folder = outDir;
    for (const fs::path& part : name.parent_path())
    {
        folder /= part;
        if (part == "." || part == ".." || part.empty() || !fs::is_directory(fs::symlink_status(folder, error)))
        {
            return false;
        }
    }
    return name.filename() != "." && name.filename() != "..";
}

// Removes the files (or symbolic links: never what they point to) the list names, then the
// folders inside outDir those leave empty.
chihost::Status RemoveListedFiles(const fs::path& outDir, const std::string& list)
{
    std::istringstream lines(list);
    std::string        line;
    std::error_code    error;
    while (std::getline(lines, line))
    {
        const fs::path name(line);
        if (line.empty() || line[0] == '#' || !IsOwnName(outDir, name))
        {
            continue;
        }
        const fs::file_status status = fs::symlink_status(outDir / name, error);
        if (!fs::is_regular_file(status) && !fs::is_symlink(status))
        {
            continue;
        }
        if (!fs::remove(outDir / name, error) && error)
        {
            return chihost::Status::Error("cannot remove " + (outDir / name).string() + " of the earlier run: " +
                                          error.message());
        }
        for (fs::path folder = name.parent_path(); !folder.empty(); folder = folder.parent_path())
        {
            if (!fs::is_directory(fs::symlink_status(outDir / folder, error)) || !fs::is_empty(outDir / folder, error))
            {
                break;
            }
            fs::remove(outDir / folder, error);
        }
    }
    return chihost::Status::Ok();
}

// The chart picture from the crop the node wrote, or a sentence saying why there is none.
std::string ChartFigure(const RunConfig& config, const RunResult& result, bool* pHasChart)
{
    *pHasChart = false;
    if (std::find(result.nodeFiles.begin(), result.nodeFiles.end(), kCropFileName) == result.nodeFiles.end())
    {
        return "The node wrote no crop: it measured no frame.";
    }
    std::string     error;
    const uintmax_t maxBytes = 3ull * kMaxCropSidePx * kMaxCropSidePx / 2;
    const std::string bytes  = ReadSmallFile(fs::path(config.outDir) / kCropFileName, maxBytes, &error);
    GreyImage       image;
    std::string     png;
    if (!error.empty() || !DecodeCropYuv(bytes, &image, &error) || !EncodeGreyPng(image, &png, &error))
    {
        return std::string("No picture of ") + kCropFileName + ": " + error;
    }
    *pHasChart = true;
    return ChartSvg(image, png, result);
}

// A folder an earlier version of the tool wrote, before runs listed their files: nothing in it
// but regular files under names a run writes, and dumped crops in dumpImage/. Their names, as a
// list for RemoveListedFiles; empty when anything else is there.
std::string UnlistedEarlierRun(const fs::path& folder)
{
    static const char* const kRunFileNames[] = {
        "index.html",      "summary.svg", "chart.svg",      "positions.svg", "calibration.svg",
        "positions.csv",   "node.log",    "oisVerify.json", "oisVerify_point_position.txt",
        "oisverify_crop.yuv", "oisGyroGainCalibrate.txt", "com.zelk.oiscal.bin", "INTERRUPTED",
    };
    const auto isRunFile = [](const std::string& name) {
        return std::find(std::begin(kRunFileNames), std::end(kRunFileNames), name) != std::end(kRunFileNames);
    };
    const auto isDump = [](const std::string& name) {
        return name.compare(0, 23, "oisverify_node_frameNum") == 0 && name.size() > 32 &&
               name.compare(name.size() - 9, 9, "_crop.yuv") == 0;
    };
    std::error_code error;
    std::string     list;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    {
        const std::string relative = fs::relative(it->path(), folder, error).string();
        const fs::file_status status = it->symlink_status(error);
        const bool inDumps = it.depth() == 1 && relative.compare(0, 10, "dumpImage/") == 0;
        if (fs::is_directory(status) && relative == "dumpImage")
        {
            continue;
        }
        if (!fs::is_regular_file(status) || it.depth() > 1 ||
            !(inDumps ? isDump(it->path().filename().string()) : isRunFile(relative)))
        {
            return "";
        }
        list += relative + "\n";
    }
    return error ? "" : list;
}

// The files of the run that wrote the folder before, as a list: its own list, or the names of an
// unlisted earlier run. Someone else's folder is an error.
chihost::Status EarlierRunFiles(const fs::path& folder, std::string* pList)
{
    std::error_code error;
    const fs::path  list = folder / kOutputListName;
    pList->clear();
    if (fs::is_regular_file(fs::symlink_status(list, error)))
    {
        std::string readError;
        *pList = ReadSmallFile(list, kMaxOutputListBytes, &readError);
        return readError.empty() ? chihost::Status::Ok()
                                 : chihost::Status::Error("cannot read " + list.string() + ": " + readError);
    }
    if (fs::is_empty(folder, error))
    {
        return chihost::Status::Ok();
    }
    *pList = UnlistedEarlierRun(folder);
    if (pList->empty())
    {
        return chihost::Status::Error("the output folder " + folder.string() + " holds files, but no " +
                                      kOutputListName +
                                      " of an earlier oisverify run: name a new or empty folder with --out");
    }
    return chihost::Status::Ok();
}

std::string OutputList(const std::vector<std::string>& names)
{
    std::string list = kOutputListHead;
    for (const std::string& name : names)
    {
        list += name + "\n";
    }
    return list;
}

} // namespace

chihost::Status PrepareOutputFolder(const std::string& outDir)
{
    if (outDir.empty())
    {
        return chihost::Status::Ok();
    }
    std::error_code error;
    const fs::path  folder(outDir);
    if (!fs::exists(fs::symlink_status(folder, error)))
    {
        if (!fs::create_directories(folder, error) && error)
        {
            return chihost::Status::Error("cannot create output folder " + outDir + ": " + error.message());
        }
    }
    else if (!fs::is_directory(folder, error))
    {
        return chihost::Status::Error("the output folder " + outDir + " is not a folder");
    }
    else
    {
        std::string     earlier;
        chihost::Status status = EarlierRunFiles(folder, &earlier);
        status                 = status ? RemoveListedFiles(folder, earlier) : status;
        if (!status)
        {
            return status;
        }
    }
    return WriteText((folder / kOutputListName).string(), kOutputListHead);
}

chihost::Status ListInOutputFolder(const std::string& outDir, const std::string& path)
{
    if (outDir.empty() || fs::path(path).parent_path().lexically_normal() != fs::path(outDir).lexically_normal())
    {
        return chihost::Status::Ok();
    }
    std::string     error;
    const fs::path  listPath = fs::path(outDir) / kOutputListName;
    std::string     list     = ReadSmallFile(listPath, kMaxOutputListBytes, &error);
    const std::string name   = fs::path(path).filename().string();
    if (!error.empty())
    {
        return chihost::Status::Error("cannot read " + listPath.string() + ": " + error);
    }
    if (("\n" + list).find("\n" + name + "\n") != std::string::npos)
    {
        return chihost::Status::Ok();
    }
    return WriteText(listPath.string(), list + name + "\n");
}

std::string PositionsCsv(const RunResult& result)
{
    std::string csv = "frame,ring_slot,algo_return,in_sr_window,up_x,up_y,down_x,down_y,left_x,left_y,right_x,right_y,"
                      "true_up_x,true_up_y,true_down_x,true_down_y,true_left_x,true_left_y,true_right_x,"
                      "true_right_y\n";
    for (const RunFrame& frame : result.frames)
    {
        csv += std::to_string(frame.measured.frameNum) + "," + std::to_string(frame.measured.ringSlot) + "," +
               std::to_string(frame.measured.algoReturn) + "," + (frame.inRing ? "1" : "0");
        AppendCentres(&csv, frame.measured.centres);
        if (frame.hasTruth)
        {
            AppendCentres(&csv, frame.truth);
        }
        else
        {
            csv += ",,,,,,,,";
        }
        csv += "\n";
    }
    return csv;
}

chihost::Status WriteRunOutputs(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                                std::vector<std::string>* pWritten, const CalibrationOutcome* pCalibration)
{
    const std::string summary   = pCalibration ? SummarySvg(config, CalibrationBars(*pCalibration), verdict)
                                               : SummarySvg(config, result, verdict);
    const std::string positions = PositionsSvg(result);
    const std::string calibration = pCalibration ? CalibrationSvg(config, *pCalibration) : "";
    const std::string section =
        pCalibration ? CalibrationSectionHtml(config, result, *pCalibration, calibration) : "";
    bool              hasChart = false;
    const std::string chart    = ChartFigure(config, result, &hasChart);
    const std::string persistName =
        fs::path(OISCalibrationFile::kPersistFilePath).filename().string();
    std::vector<std::pair<std::string, std::string>> files = { { "summary.svg", summary } };
    if (hasChart)
    {
        files.push_back({ "chart.svg", chart });
    }
    files.push_back({ "positions.svg", positions });
    if (pCalibration)
    {
        files.push_back({ "calibration.svg", calibration });
    }
    files.push_back({ "positions.csv", PositionsCsv(result) });
    files.push_back({ "node.log", result.logText });
    if (pCalibration && result.calibration.hasPersistFile)
    {
        files.push_back({ persistName, result.calibration.persistBytes });
    }
    if (result.stopSignal != 0)
    {
        files.push_back({ kInterruptedName, "oisverify run was " + result.stopReason +
                                                ".\nThe files in this folder hold what the run produced until then.\n" });
    }
    std::vector<std::string> links;
    for (const auto& file : files)
    {
        links.push_back(file.first);
    }
    links.insert(links.end(), result.nodeFiles.begin(), result.nodeFiles.end());
    const PageFigures figures = { summary, positions, hasChart ? chart : "", hasChart ? "" : chart, section };
    files.insert(files.begin(), { "index.html", SummaryHtml(config, result, verdict, figures, links) });
    pWritten->clear();
    std::vector<std::string> listed = { "index.html" };
    listed.insert(listed.end(), links.begin(), links.end());
    chihost::Status status = WriteText(config.outDir + "/" + kOutputListName, OutputList(listed));
    for (auto file = files.begin(); status && file != files.end(); ++file)
    {
        status = WriteText(config.outDir + "/" + file->first, file->second);
        if (status)
        {
            pWritten->push_back(file->first);
        }
    }
    return status;
}

} // namespace oisverify
