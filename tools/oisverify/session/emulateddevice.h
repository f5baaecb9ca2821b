// The emulated phone that oisverify commands run the node in: a device root with the build
// properties, override settings and run-time libraries the options ask for, and a host session
// with the node library loaded. Also the options every such command shares.
#ifndef ZELK_TOOLS_OISVERIFY_EMULATEDDEVICE_H
#define ZELK_TOOLS_OISVERIFY_EMULATEDDEVICE_H

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "chihost/emulator/deviceroot.h"
#include "chihost/emulator/hostsession.h"

namespace oisverify
{

// Gain property of camera role 0 and the gains it holds unless --prop says otherwise.
extern const char* const kDefaultGainProperty;
extern const char* const kDefaultGainText;

// Options for the node library, the device root and what is written into it.
std::vector<OptionSpec> DeviceOptionSpecs();

// What the shared device options ask for, for commands that open the device themselves.
struct DeviceRequest
{
    std::string                 nodeLibraryPath; // as given (or the default beside the tool)
    chihost::DeviceRootOptions  root;            // build.prop starts with the default gain property
    chihost::HostSessionOptions host;
};

// Reads --node, --prop, --setting, --eeprom, --root and --keep-root; fails with a message for a
// malformed NAME=VALUE or EEPROM value.
chihost::Status ReadDeviceOptions(const Arguments& arguments, DeviceRequest* pRequest);

// The node library as an absolute path (the device root becomes the working directory).
chihost::Status ResolveNodeLibrary(std::string* pPath);

class EmulatedDevice
{
public:
    EmulatedDevice() = default;
    ~EmulatedDevice();

    // Opens the device root and the host session from parsed arguments.
    chihost::Status Open(const Arguments& arguments);

    chihost::DeviceRoot&  Root() { return m_root; }
    chihost::HostSession& Session() { return m_session; }
    const std::string&    NodeLibraryPath() const { return m_nodeLibraryPath; }

private:
    std::string          m_nodeLibraryPath;
    chihost::DeviceRoot  m_root;
    chihost::HostSession m_session;
};

// Directory of the running executable; the node library is found beside it in ../lib.
std::string ExecutableDirectory();

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_EMULATEDDEVICE_H
