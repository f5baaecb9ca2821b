// Vendor tag registry of the emulated camera framework. Sections are registered in order (the
// host's own sensor section first, then each node library's answer to its vendor-tag query);
// section k owns the ids 0x80000000 + (k << 16) onwards and tag i of it is that base + i. The
// registry answers the node interface's vendor-tag-base query and maps ids back to names.
// One registry serves the whole process, as on a device; it is safe to use from any thread.
#ifndef ZELK_CHIHOST_EMULATOR_VENDORTAGREGISTRY_H
#define ZELK_CHIHOST_EMULATOR_VENDORTAGREGISTRY_H

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "chinode.h"
#include "chihost/emulator/status.h"

namespace chihost
{

// The section and tag under which the host publishes the sensor's EEPROMInformation record.
extern CHIHOST_EMULATOR_API const char* const kSensorMetaDataSection;
extern CHIHOST_EMULATOR_API const char* const kEEPROMInformationTag;

struct VendorTagDefinition
{
    std::string name;
    UINT8       type  = ChiVendorTagTypeByte; // ChiVendorTagType
    size_t      count = 0;                    // number of units of that type
};

// What an id stands for (reverse lookup).
struct VendorTagDescription
{
    UINT32      id = 0;
    std::string section;
    std::string name;
    UINT8       type  = ChiVendorTagTypeByte;
    size_t      count = 0;
};

class CHIHOST_EMULATOR_API VendorTagRegistry
{
public:
    // A registry holding only the host's own section; Instance() is the process-wide one.
    VendorTagRegistry();
    static VendorTagRegistry& Instance();

    VendorTagRegistry(const VendorTagRegistry&)            = delete;
    VendorTagRegistry& operator=(const VendorTagRegistry&) = delete;

    // Registers one section and reports its base. Registering a section name again with the same
    // tags answers the existing base (a second session of the same node); different tags fail.
    Status RegisterSection(const std::string&                      section,
                           const std::vector<VendorTagDefinition>& tags,
                           UINT32*                                 pBase);

    // Registers every section of a node's vendor-tag answer, in order; pBases (optional) receives
    // one base per section. A malformed table registers nothing.
    Status RegisterSections(const CHIVENDORTAGINFO& info, std::vector<UINT32>* pBases);

    bool FindSectionBase(const std::string& section, UINT32* pBase) const;
    bool FindTagId(const std::string& section, const std::string& tag, UINT32* pTagId) const;
    // Pool selector bits in tagId are ignored.
    bool   Describe(UINT32 tagId, VendorTagDescription* pDescription) const;
    size_t SectionCount() const;

    // The node interface's vendor-tag-base query: 5 for a null record, 1 for a short one, 5 for a
    // null section name, 6 for an unknown section or tag (the record is then left untouched);
    // otherwise 0 with vendorTagBase set to the section base, or to the tag's id when pTagName
    // is given.
    CDKResult GetVendorTagBase(CHIVENDORTAGBASEINFO* pInfo) const;

private:
    struct Section
    {
        std::string                      name;
        UINT32                           base = 0;
        std::vector<VendorTagDefinition> tags;
    };

    // The Locked functions expect m_mutex to be held.
    Status         ValidateSectionLocked(const std::string&                      section,
                                         const std::vector<VendorTagDefinition>& tags) const;
    Status         ValidateBatchLocked(const std::vector<Section>& batch) const;
    Status         RegisterLocked(const std::string&                      section,
                                  const std::vector<VendorTagDefinition>& tags,
                                  UINT32*                                 pBase);
    const Section* FindLocked(const std::string& section) const;
    static Status  ConvertSection(const CHIVENDORTAGSECTIONDATA& data, Section* pSection);

    mutable std::mutex            m_mutex;
    std::vector<Section>          m_sections;
    std::map<std::string, size_t> m_sectionIndex;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_VENDORTAGREGISTRY_H
