// Emulated device and host session for node tests; see nodeharness.h.
#include "nodeharness.h"

namespace testsupport
{

const char* const kRole0GainProperty = "persist.vendor.camera.oisgyrogain.w";

NodeHarness::~NodeHarness()
{
    m_session.Close();
    m_root.Close();
}

chihost::Status NodeHarness::Open(const HarnessOptions& options)
{
    chihost::DeviceRootOptions rootOptions;
    rootOptions.oisLibrarySource = options.oisLibrarySource;
    rootOptions.buildProperties.push_back({ kRole0GainProperty, "1.000000,1.000000" });
    for (const auto& property : options.buildProperties)
    {
        rootOptions.buildProperties.push_back(property);
    }
    rootOptions.overrideSettings = options.overrideSettings;
    chihost::Status status = m_root.Open(rootOptions);
    if (!status)
    {
        return status;
    }

    chihost::HostSessionOptions sessionOptions;
    sessionOptions.eepromCustomInfo         = options.eepromCustomInfo;
    sessionOptions.publishEEPROMInformation = options.publishEeprom;
    return m_session.Open(ZELK_NODE_LIBRARY, sessionOptions);
}

chihost::NodeCreateOutcome NodeHarness::Create(const chihost::NodePropertyList& properties)
{
    return m_session.CreateNode(properties, 0, 0, 0);
}

CDKResult NodeHarness::Destroy(CHIHANDLE hNode)
{
    return m_session.DestroyNode(hNode);
}

} // namespace testsupport
