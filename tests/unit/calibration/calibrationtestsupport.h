// Pieces shared by the calibration tests: a fresh device root with an empty property store, the
// persist file under it, fuse-ID properties in the device's value layout, and captures of the
// process's standard output and error and of the "CalibrationData" Android log.
#ifndef ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H
#define ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "androidservices.h"
#include "chihost/emulator/logcapture.h"
#include "chihost/hostproperties.h"
#include "tempdeviceroot.h"

namespace calibtest
{

const char kPersistFile[] = "/mnt/vendor/persist/camera/com.zelk.oiscal.bin";
const char kPersistDir[]  = "/mnt/vendor/persist/camera";

// Everything written to fd 1 or 2 between construction and Text().
class StreamCapture
{
public:
    explicit StreamCapture(int fd) : m_fd(fd), m_pFile(tmpfile()), m_savedFd(dup(fd))
    {
        fflush(nullptr);
        dup2(fileno(m_pFile), m_fd);
    }
    ~StreamCapture() { Text(); }

    const std::string& Text()
    {
        if (m_pFile != nullptr)
        {
            fflush(nullptr);
            dup2(m_savedFd, m_fd);
            close(m_savedFd);
            rewind(m_pFile);
            char   chunk[4096];
            size_t got = 0;
            while ((got = fread(chunk, 1, sizeof(chunk), m_pFile)) > 0)
            {
                m_text.append(chunk, got);
            }
            fclose(m_pFile);
            m_pFile = nullptr;
        }
        return m_text;
    }

private:
    int         m_fd;
    FILE*       m_pFile;
    int         m_savedFd;
    std::string m_text;
};

// A property value as the device publishes fuse IDs: four ignored characters, the ID's length
// in four digits, the ID.
inline std::string FuseIdValue(const std::string& fuseId)
{
    char length[8];
    snprintf(length, sizeof(length), "%04zu", fuseId.size());
    return "FUSE" + std::string(length) + fuseId;
}

class CalibrationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ChiHostPropertiesClear();
        m_root.MakeDirs(kPersistDir);
    }

    void WritePersist(const std::string& content) { m_root.WriteFile(kPersistFile, content); }
    std::string ReadPersist() const { return m_root.ReadFile(kPersistFile); }
    std::string PersistPath() const { return m_root.Map(kPersistFile); }

    // The "CalibrationData" Android log lines, in order, as formatted.
    std::vector<std::string> CalibrationLog() const
    {
        std::vector<std::string> texts;
        for (const chihost::CapturedLine& line : m_log.Lines())
        {
            if (line.sink == chihost::CapturedLine::AndroidLog && line.tag == "CalibrationData")
            {
                texts.push_back(line.message);
            }
        }
        return texts;
    }
    size_t CountLog(const std::string& text) const
    {
        size_t count = 0;
        for (const std::string& line : CalibrationLog())
        {
            count += (line == text) ? 1 : 0;
        }
        return count;
    }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
};

} // namespace calibtest

#endif // ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H
