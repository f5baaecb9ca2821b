// Fuzz target of the node's parameter parsing: the texts of "vendor.debug.camera.oisAlgoPara",
// "vendor.debug.camera.oisGainCalibrate" and the module's gain property ("gainX,gainY", camera
// role 0) go through node creation, optionally followed by a few verification requests that run
// on the parsed parameters.
//
// Input: the three texts separated by NUL bytes (a property value is a C string; each keeps at
// most 91 bytes, the most the property store holds, and an empty text leaves the property unset
// so the node's default applies), then an options byte: bit 0 turns the gyro-gain calibration
// setting on, bit 1 publishes a sensor EEPROM record read from the rest of the input (its custom
// entries need not be NUL-terminated), bit 2 runs requests (start, then verify) on a chart frame.
//
// Scope. A field that std::stoi or std::stof cannot convert (not a number, or out of range)
// makes the conversion throw, and the node deliberately does not catch it: that is its defined
// behaviour, so this target catches std::invalid_argument and std::out_of_range around the create
// call and counts them as an expected outcome. The node object of such a creation is never
// freed, so leak detection is switched off (__lsan_disable) around exactly those creations whose
// texts hold a field the standard conversions refuse; every other creation, and everything after
// it, runs with leak detection on. That keeps the texts unrestricted (restricting them to
// convertible fields would never reach the throwing paths) and keeps leaks found on all other
// paths. The target also aborts when:
//   - the node throws although every colon field and both gain sides convert;
//   - creation gives a result other than success or "gain property unusable" (3), or a node handle
//     on failure, or none on success.
// Anything else (any length, any bytes, colons) must neither crash nor read out of bounds.
#include <stdint.h>
#include <string.h>

#include <sanitizer/lsan_interface.h>

#include <stdexcept>
#include <string>

#include "androidservices.h"
#include "chihost/emulator/vendortagregistry.h"
#include "nodefuzzhost.h"
#include "nodefuzzimages.h"

namespace
{

const char* const kTarget               = "nodeproperties_fuzz";
const char* const kAlgoParaProperty     = "vendor.debug.camera.oisAlgoPara";
const char* const kGainCalibrateProperty = "vendor.debug.camera.oisGainCalibrate";
const size_t      kPropertyValueBytes   = PROPERTY_VALUE_MAX - 1;
const uint32_t    kEepromEntries        = 4;
const uint32_t    kFrameWidth           = 704; // 4:3, so the crop (264) is large enough to measure
const uint32_t    kFrameHeight          = 528;
const uint32_t    kVerifyRequests       = 5;
const INT32       kStartState           = 1;
const INT32       kVerifyingState       = 3;

bool Converts(const std::string& field)
{
    try
    {
        (void)std::stoi(field);
        (void)std::stof(field);
        return true;
    }
    catch (const std::logic_error&)
    {
        return false;
    }
}

// Whether every ':'-separated field of a parameter text converts. An empty text is unset, and
// the node then parses its own default.
bool ParameterTextConverts(const std::string& text)
{
    if (text.empty())
    {
        return true;
    }
    size_t start = 0;
    for (;;)
    {
        const size_t colon = text.find(':', start);
        if (!Converts(text.substr(start, colon - start)))
        {
            return false;
        }
        if (colon == std::string::npos)
        {
            return true;
        }
        start = colon + 1;
    }
}

// Both sides of the first comma convert (a text without a comma is refused before conversion).
bool GainTextConverts(const std::string& text)
{
    const size_t comma = text.find(',');
    return (comma == std::string::npos) || (Converts(text.substr(0, comma)) && Converts(text.substr(comma + 1)));
}

void SetProperty(const char* pName, const std::string& value)
{
    if (property_set(pName, value.c_str()) != 0)
    {
        zelkfuzz::Fail(kTarget, "the property store refused a value of at most 91 bytes");
    }
}

// The sensor's EEPROM record in the static pool: the default (no entries) or one from the input.
void PublishEeprom(zelkfuzz::FuzzReader* pReader)
{
    static bool s_custom = false;
    if (pReader == nullptr)
    {
        if (s_custom && !zelkfuzz::Session().PublishEEPROMInformation({}))
        {
            zelkfuzz::Fail(kTarget, "the default EEPROM record was refused");
        }
        s_custom = false;
        return;
    }
    EEPROMInformation record;
    memset(&record, 0, sizeof(record));
    record.customInfoCount = pReader->U32();
    for (uint32_t i = 0; i < kEepromEntries; i++)
    {
        EEPROMCustomInfo& entry = record.customInfo[i];
        const uint8_t     kind  = pReader->U8() % 3;
        if (kind == 0)
        {
            strcpy(entry.name, "OISGyroGainAndSRMatch");
        }
        else if (kind == 1)
        {
            memset(entry.name, 'O', sizeof(entry.name)); // no terminating NUL
        }
        else
        {
            const std::string text = pReader->Text(sizeof(entry.name));
            memcpy(entry.name, text.data(), text.size());
        }
        entry.value = pReader->U32();
    }
    UINT32 tagId = 0;
    if (!chihost::VendorTagRegistry::Instance().FindTagId(chihost::kSensorMetaDataSection,
                                                          chihost::kEEPROMInformationTag, &tagId) ||
        !zelkfuzz::Session().Pools().WriteTag(chihost::MetadataPool::Static, 0, tagId, &record, sizeof(record)))
    {
        zelkfuzz::Fail(kTarget, "the EEPROM record could not be published");
    }
    s_custom = true;
}

// Creates a node; conversion failures are caught and reported through pThrew.
CHIHANDLE Create(bool expectConversion, CDKResult* pResult, bool* pThrew)
{
    CHINODECREATEINFO info = zelkfuzz::DefaultCreateInfo();
    *pThrew                = false;
    if (!expectConversion)
    {
        __lsan_disable();
    }
    try
    {
        *pResult = zelkfuzz::Callbacks().pCreate(&info);
    }
    catch (const std::invalid_argument&)
    {
        *pThrew = true;
    }
    catch (const std::out_of_range&)
    {
        *pThrew = true;
    }
    if (!expectConversion)
    {
        __lsan_enable();
    }
    return *pThrew ? nullptr : info.phNodeSession;
}

void RunRequests(CHIHANDLE hNode)
{
    const std::vector<uint8_t> description = zelkfuzz::DescribeChartFrame(kFrameWidth, kFrameHeight);
    zelkfuzz::FuzzReader       reader(description.data(), description.size());
    zelkfuzz::FuzzImageList    frame(reader, static_cast<uint64_t>(kFrameWidth) * kFrameHeight);
    std::vector<CHINODEBUFFERHANDLE> inputs = { frame.Handle() };
    for (UINT64 frameNum = 0; frameNum <= kVerifyRequests; frameNum++)
    {
        zelkfuzz::SubmitRequest(kTarget, hNode, frameNum, true, (frameNum == 0) ? kStartState : kVerifyingState,
                                &inputs);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    (void)pArgc;
    (void)pArgv;
    zelkfuzz::SetUpDevice(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    zelkfuzz::FuzzReader reader(pData, size);
    const std::string    algoText  = reader.Text(kPropertyValueBytes);
    const std::string    calibText = reader.Text(kPropertyValueBytes);
    const std::string    gainText  = reader.Text(kPropertyValueBytes);
    const uint8_t        options   = reader.U8();

    zelkfuzz::BeginInput();
    SetProperty(kAlgoParaProperty, algoText);
    SetProperty(kGainCalibrateProperty, calibText);
    SetProperty(zelkfuzz::kRole0GainProperty, gainText);
    zelkfuzz::SetCalibration((options & 1) != 0);
    PublishEeprom(((options & 2) != 0) ? &reader : nullptr);

    const bool expectConversion =
        ParameterTextConverts(algoText) && ParameterTextConverts(calibText) && GainTextConverts(gainText);
    CDKResult result = CDKResultEFailed;
    bool      threw  = false;
    CHIHANDLE hNode  = Create(expectConversion, &result, &threw);
    if (threw)
    {
        if (expectConversion)
        {
            zelkfuzz::Fail(kTarget, "creation threw although every field converts");
        }
    }
    else if ((result != CDKResultSuccess) && (result != CDKResultEInvalidState))
    {
        zelkfuzz::Fail(kTarget, "creation ended with a result other than 0 or 3");
    }
    else if ((result == CDKResultSuccess) != (hNode != nullptr))
    {
        zelkfuzz::Fail(kTarget, "a node handle does not match the creation result");
    }

    if (hNode != nullptr)
    {
        if ((options & 4) != 0)
        {
            RunRequests(hNode);
        }
        zelkfuzz::DestroyNode(hNode);
    }
    zelkfuzz::EndInput();
    return 0;
}
