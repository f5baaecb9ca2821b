// Pieces shared by the calibration tests: a fresh device root holding the persist directory, an
// empty property store, fuse-ID property values, and captures of the process's standard output
// and error and of the "CalibrationData" Android log.
#ifndef ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H
#define ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
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
            for (int c = fgetc(m_pFile); c != EOF; c = fgetc(m_pFile))
            {
                m_text.push_back(static_cast<char>(c));
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

// Ends the test program with a failure if the guarded scope has not finished after `limit`: a
// hang guard for operations that must never block (not a measure of their speed).
class HangGuard
{
public:
    explicit HangGuard(std::string what, std::chrono::seconds limit = std::chrono::seconds(120))
        : m_what(std::move(what))
    {
        m_thread = std::thread([this, limit] {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_done.wait_for(lock, limit, [this] { return m_finished; }))
            {
                fprintf(stderr, "HANG: %s did not finish\n", m_what.c_str());
                fflush(stderr);
                _exit(3);
            }
        });
    }
    ~HangGuard()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_finished = true;
        }
        m_done.notify_all();
        m_thread.join();
    }

private:
    std::string             m_what;
    std::mutex              m_mutex;
    std::condition_variable m_done;
    bool                    m_finished = false;
    std::thread             m_thread;
};

// A fuse-ID property value as a device publishes it: four ignored characters, the ID's length in
// four digits, the ID.
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

    void        WritePersist(const std::string& content) { m_root.WriteFile(kPersistFile, content); }
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
        const std::vector<std::string> texts = CalibrationLog();
        return static_cast<size_t>(std::count(texts.begin(), texts.end(), text));
    }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
};

} // namespace calibtest

#endif // ZELK_TESTS_UNIT_CALIBRATION_CALIBRATIONTESTSUPPORT_H
