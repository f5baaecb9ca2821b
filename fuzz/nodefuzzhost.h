// The emulated device the node fuzz targets share, set up once per process: a device root with the
// measurement library, the logical camera table, build.prop (role 0's gains) and override settings
// that keep only error logging, and a host session that has loaded the node library and handed it
// the host's interface. Each input then creates its own nodes through the callbacks and leaves the
// device as it found it (no node alive, request metadata forgotten, the interface restored).
// Also here: the reader that turns fuzz bytes into fields.
#ifndef ZELK_FUZZ_NODEFUZZHOST_H
#define ZELK_FUZZ_NODEFUZZHOST_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "chihost/emulator/hostsession.h"
#include "chinode.h"

namespace zelkfuzz
{

// Fixed-width little-endian fields taken from the front of an input; past its end every read
// gives zero, so any input is a complete description.
class FuzzReader
{
public:
    FuzzReader(const uint8_t* pData, size_t size) : m_pData(pData), m_size(size) {}

    uint8_t  U8();
    uint16_t U16();
    uint32_t U32();
    uint64_t U64();
    // Bytes up to the next NUL (consumed, not returned) or the end of the input, at most
    // maxBytes of them kept.
    std::string Text(size_t maxBytes);
    // Copies up to size bytes into pOut and zero-fills the rest.
    void   Fill(void* pOut, size_t size);
    bool   Empty() const { return m_offset >= m_size; }
    size_t Remaining() const { return m_size - m_offset; }

private:
    const uint8_t* m_pData;
    size_t         m_size;
    size_t         m_offset = 0;
};

// Gain property of camera role 0 in the logical camera table.
extern const char* const kRole0GainProperty;
// Frame period of the simulated clock: 60 fps.
const uint64_t kFramePeriodNs = 16666667;

// Opens the device root and the host session; a failure ends the process with a message. Called
// from LLVMFuzzerInitialize. calibration sets the override setting enableOISGyroGainCalibration.
void SetUpDevice(bool calibration);
// Rewrites the override settings with calibration on or off (only when it changes).
void SetCalibration(bool calibration);

chihost::HostSession&   Session();
// Where a device path (e.g. "/data/vendor/camera/ois") lies on the host, under the device root.
std::string MapDevicePath(const std::string& devicePath);
const CHINODECALLBACKS& Callbacks();
// The node library's exported entry, looked up in the loaded library.
PFNCHINODEENTRY NodeEntry();

// A create record as the framework fills it (full size, this session's handle, no properties).
CHINODECREATEINFO DefaultCreateInfo();
// Creates a node with the default record; null when the node refused.
CHIHANDLE CreateNode(CDKResult* pResult);
// Destroys a node the target created; aborts when the node does not accept a valid record.
void DestroyNode(CHIHANDLE hNode);

// One request: the app's state setting for frameNum (when writeState), then the process-request
// callback with the given inputs. A full-size request record is never refused: if the node does,
// the run fails under pTarget's name. The frame's metadata is forgotten by EndInput.
void SubmitRequest(const char* pTarget, CHIHANDLE hNode, UINT64 frameNum, bool writeState, INT32 state,
                   std::vector<CHINODEBUFFERHANDLE>* pInputs);
// Remembers a frame number whose request metadata EndInput must drop.
void NoteFrame(UINT64 frameNum);

// Starts the simulated clock for an input and mutes stdio output (the host kit's diagnostics on
// stderr, e.g. a buffer negotiation with contradicting requirements, which random records produce
// by the thousand, and the node's printf when the calibration service is absent). Sanitizer and
// libFuzzer reports do not go through those streams and still show; ZELK_FUZZ_LOG=1 keeps
// everything.
void BeginInput();
// Moves the simulated clock on by one frame period, as the framework's next request does.
void AdvanceClock();
// Drops the request metadata and the set-call log of the input and unmutes stdio.
void EndInput();

// Aborts with a message: a property the node must keep did not hold.
[[noreturn]] void Fail(const char* pTarget, const char* pWhat);

} // namespace zelkfuzz

#endif // ZELK_FUZZ_NODEFUZZHOST_H
