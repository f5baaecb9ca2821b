// Host build of the CamX settings manager. The framework's static settings start at their
// defaults and are overridden, on first use, by the device's override settings file. Every line
// the reader cannot use is reported with its path and line number and otherwise ignored, so a bad
// file never stops a session. The log settings are pushed into the log library once loaded.
#include "camxsettingsmanager.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include <mutex>
#include <string>
#include <vector>

#include "chihost/hostlog.h"
#include "chihost/hostsettings.h"
#include "devicepath.h"
#include "keyvaluefile.h"

namespace
{

const UINT32 kAllGroupsMask = 0xFFFFFFFF;

enum class SettingKind
{
    Boolean,
    Mask,
};

struct SettingDescriptor
{
    const char*                   pName;
    SettingKind                   kind;
    BOOL CamX::StaticSettings::*  pBoolean;
    UINT32 CamX::StaticSettings::*pMask;
};

const SettingDescriptor kSettings[] = {
    {"enableOISGyroGainCalibration", SettingKind::Boolean,
     &CamX::StaticSettings::enableOISGyroGainCalibration, nullptr},
    {"logErrorMask", SettingKind::Mask, nullptr, &CamX::StaticSettings::logErrorMask},
    {"logWarningMask", SettingKind::Mask, nullptr, &CamX::StaticSettings::logWarningMask},
    {"logInfoMask", SettingKind::Mask, nullptr, &CamX::StaticSettings::logInfoMask},
    {"logVerboseMask", SettingKind::Mask, nullptr, &CamX::StaticSettings::logVerboseMask},
    {"enableSystemLog", SettingKind::Boolean, &CamX::StaticSettings::enableSystemLog, nullptr},
};

CamX::StaticSettings DefaultSettings()
{
    CamX::StaticSettings settings         = {};
    settings.enableOISGyroGainCalibration = FALSE;
    settings.logErrorMask                 = kAllGroupsMask;
    settings.logWarningMask               = kAllGroupsMask;
    settings.logInfoMask                  = kAllGroupsMask;
    settings.logVerboseMask               = kAllGroupsMask;
    settings.enableSystemLog              = TRUE;
    return settings;
}

const SettingDescriptor* FindSetting(const std::string& name)
{
    for (const SettingDescriptor& descriptor : kSettings)
    {
        if (name == descriptor.pName)
        {
            return &descriptor;
        }
    }
    return nullptr;
}

bool ParseBoolean(const std::string& text, BOOL* pValue)
{
    if ((0 == strcasecmp(text.c_str(), "TRUE")) || ("1" == text))
    {
        *pValue = TRUE;
        return true;
    }
    if ((0 == strcasecmp(text.c_str(), "FALSE")) || ("0" == text))
    {
        *pValue = FALSE;
        return true;
    }
    return false;
}

// Decimal or 0x-prefixed hexadecimal, the whole text, within 32 bits. A leading 0 is decimal, not
// octal, and signs are refused (strtoull would silently negate "-1").
bool ParseMask(const std::string& text, UINT32* pValue)
{
    bool        hex    = (text.size() > 2) && ('0' == text[0]) && ('x' == text[1] || 'X' == text[1]);
    const char* pStart = text.c_str() + (hex ? 2 : 0);
    if (!isxdigit(static_cast<unsigned char>(*pStart)))
    {
        return false;
    }
    char* pEnd = nullptr;
    errno      = 0;
    unsigned long long parsed = strtoull(pStart, &pEnd, hex ? 16 : 10);
    if ((0 != errno) || ('\0' != *pEnd) || (parsed > 0xFFFFFFFFULL))
    {
        return false;
    }
    *pValue = static_cast<UINT32>(parsed);
    return true;
}

void Report(const char* pPath, int lineNumber, const std::string& problem)
{
    fprintf(stderr, "chihost: %s:%d: %s; line ignored\n", pPath, lineNumber, problem.c_str());
}

// Applies one entry; false (after reporting why) when the line is not usable.
bool ApplyLine(const char* pPath, const ChiHost::KeyValueLine& line, CamX::StaticSettings* pSettings)
{
    if (!line.hasEquals || line.name.empty())
    {
        Report(pPath, line.lineNumber,
               "malformed line \"" + ChiHost::LineText(line) + "\" (expected name=value)");
        return false;
    }
    const SettingDescriptor* pDescriptor = FindSetting(line.name);
    if (nullptr == pDescriptor)
    {
        Report(pPath, line.lineNumber, "unknown setting \"" + line.name + "\"");
        return false;
    }
    bool parsed = (SettingKind::Boolean == pDescriptor->kind)
                      ? ParseBoolean(line.value, &(pSettings->*(pDescriptor->pBoolean)))
                      : ParseMask(line.value, &(pSettings->*(pDescriptor->pMask)));
    if (!parsed)
    {
        const char* pExpected = (SettingKind::Boolean == pDescriptor->kind)
                                    ? "TRUE, FALSE, 1 or 0"
                                    : "a decimal or 0x-hexadecimal 32-bit number";
        Report(pPath, line.lineNumber,
               "bad value \"" + line.value + "\" for " + line.name + " (expected " + pExpected + ")");
    }
    return parsed;
}

// Resets *pSettings to the defaults and applies the override file. Returns the number of lines
// applied, or -1 when there is no file.
int LoadSettings(CamX::StaticSettings* pSettings)
{
    *pSettings = DefaultSettings();
    DevicePath                         path(CHIHOST_OVERRIDE_SETTINGS_PATH);
    std::vector<ChiHost::KeyValueLine> lines;
    std::string                        error;
    ChiHost::KeyValueFileStatus        status = ChiHost::ReadKeyValueFile(path.Get(), &lines, &error);
    if (ChiHost::KeyValueFileStatus::Loaded != status)
    {
        const char* pVerdict =
            (ChiHost::KeyValueFileStatus::Absent == status) ? "not found" : "cannot be read";
        fprintf(stderr, "chihost: override settings file \"%s\" %s (%s); using default settings\n",
                path.Get(), pVerdict, error.c_str());
        return -1;
    }
    int applied = 0;
    for (const ChiHost::KeyValueLine& line : lines)
    {
        applied += ApplyLine(path.Get(), line, pSettings) ? 1 : 0;
    }
    return applied;
}

void PushLogSettings(const CamX::StaticSettings& settings)
{
    ChiHostLogApplySettings(settings.logErrorMask, settings.logWarningMask, settings.logInfoMask,
                            settings.logVerboseMask, settings.enableSystemLog);
}

} // namespace

namespace CamX
{

// Owns the single instance and serialises loads; readers take the settings without a lock, as the
// framework's settings are fixed once a session runs.
struct SettingsManagerAccess
{
    static std::mutex& LoadLock()
    {
        static std::mutex s_lock;
        return s_lock;
    }

    static int Reload(SettingsManager* pManager)
    {
        std::lock_guard<std::mutex> guard(LoadLock());
        // Built aside and copied in one step, so a reader never sees a half-reset set.
        StaticSettings loaded;
        int            applied    = LoadSettings(&loaded);
        pManager->m_staticSettings = loaded;
        PushLogSettings(loaded);
        return applied;
    }

    // The instance holds the defaults until its first load.
    static SettingsManager* Instance()
    {
        static SettingsManager s_instance;
        return &s_instance;
    }

    static std::once_flag& FirstLoad()
    {
        static std::once_flag s_firstLoad;
        return s_firstLoad;
    }

    // Loads unless the first use has not happened yet, in which case that first load is this one.
    static int LoadNow(SettingsManager* pManager)
    {
        int  applied = 0;
        bool loaded  = false;
        std::call_once(FirstLoad(), [&]() {
            applied = Reload(pManager);
            loaded  = true;
        });
        return loaded ? applied : Reload(pManager);
    }
};

SettingsManager::SettingsManager()
    : m_staticSettings(DefaultSettings())
{
}

SettingsManager* SettingsManager::GetInstance()
{
    SettingsManager* pManager = SettingsManagerAccess::Instance();
    std::call_once(SettingsManagerAccess::FirstLoad(),
                   [pManager]() { SettingsManagerAccess::Reload(pManager); });
    return pManager;
}

const StaticSettings* SettingsManager::GetStaticSettings() const
{
    return &m_staticSettings;
}

} // namespace CamX

extern "C" int ChiHostSettingsReload(void)
{
    return CamX::SettingsManagerAccess::LoadNow(CamX::SettingsManagerAccess::Instance());
}
