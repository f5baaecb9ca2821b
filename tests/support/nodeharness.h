// One node library in a fresh emulated device: a device root with build.prop, override settings
// and the run-time libraries, and a host session that has loaded the library. Tests create and
// destroy nodes through it exactly as the camera framework would.
#ifndef ZELK_TESTS_SUPPORT_NODEHARNESS_H
#define ZELK_TESTS_SUPPORT_NODEHARNESS_H

#include <string>

#include "chihost/emulator/deviceroot.h"
#include "chihost/emulator/hostsession.h"

namespace testsupport
{

// Gain property of camera role 0 in the logical camera table.
extern const char* const kRole0GainProperty;

struct HarnessOptions
{
    // Added to (or replacing) the defaults: role 0's gains "1.000000,1.000000".
    chihost::NameValueList buildProperties;
    chihost::NameValueList overrideSettings;
    chihost::EEPROMCustomInfoList eepromCustomInfo;
    // Empty: the measurement library built beside the emulator.
    std::string oisLibrarySource;
    bool        publishEeprom = true;
};

class NodeHarness
{
public:
    NodeHarness() = default;
    ~NodeHarness();

    // Opens root and session; reports the emulator's message on failure.
    chihost::Status Open(const HarnessOptions& options = HarnessOptions());

    chihost::NodeCreateOutcome Create(const chihost::NodePropertyList& properties = {});
    CDKResult                  Destroy(CHIHANDLE hNode);

    chihost::DeviceRoot&    Root() { return m_root; }
    chihost::HostSession&   Session() { return m_session; }
    const CHINODECALLBACKS& Callbacks() const { return m_session.Callbacks(); }

private:
    chihost::DeviceRoot  m_root;
    chihost::HostSession m_session;
};

} // namespace testsupport

#endif // ZELK_TESTS_SUPPORT_NODEHARNESS_H
