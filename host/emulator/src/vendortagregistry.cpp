// Vendor tag registry; see vendortagregistry.h for the id model.
#include "chihost/emulator/vendortagregistry.h"

#include <set>

namespace chihost
{

const char* const kSensorMetaDataSection = "org.codeaurora.qcamera3.sensor_meta_data";
const char* const kEEPROMInformationTag  = "EEPROMInformation";

namespace
{

// Section k's base is kFirstBase + (k << 16). The section index must stay below the metadata pool
// selector bits (0x78000000), or a tag id OR-ed with a pool selector could not be told apart
// from a tag of another section: 0x800 sections of 0x10000 tags fill 0x80000000..0x87FFFFFF.
const UINT32 kFirstBase         = ChiVendorTagIdBase;
const UINT32 kSectionShift      = 16;
const size_t kMaxSections       = 0x800;
const size_t kMaxTagsPerSection = ChiVendorTagIndexMask + 1;

bool SameTags(const std::vector<VendorTagDefinition>& a, const std::vector<VendorTagDefinition>& b)
{
    if (a.size() != b.size())
    {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i)
    {
        if ((a[i].name != b[i].name) || (a[i].type != b[i].type) || (a[i].count != b[i].count))
        {
            return false;
        }
    }
    return true;
}

} // namespace

VendorTagRegistry::VendorTagRegistry()
{
    // The host's own section always comes first, as the framework registers its tags before any
    // node library is queried.
    std::vector<VendorTagDefinition> sensorTags = {
        {kEEPROMInformationTag, ChiVendorTagTypeByte, sizeof(EEPROMInformation)}};
    UINT32 base = 0;
    (void)RegisterLocked(kSensorMetaDataSection, sensorTags, &base);
}

VendorTagRegistry& VendorTagRegistry::Instance()
{
    static VendorTagRegistry s_registry;
    return s_registry;
}

Status VendorTagRegistry::ValidateSectionLocked(const std::string&                      section,
                                                const std::vector<VendorTagDefinition>& tags) const
{
    if (section.empty())
    {
        return Status::Error("vendor tag section without a name");
    }
    if (tags.size() > kMaxTagsPerSection)
    {
        return Status::Error("vendor tag section " + section + " has " +
                             std::to_string(tags.size()) + " tags; at most 65536 fit");
    }
    std::set<std::string> names;
    for (const VendorTagDefinition& tag : tags)
    {
        if (tag.name.empty())
        {
            return Status::Error("vendor tag section " + section + " has a tag without a name");
        }
        if (tag.type > ChiVendorTagTypeRational)
        {
            return Status::Error("vendor tag " + section + "." + tag.name + " has unknown type " +
                                 std::to_string(tag.type));
        }
        if (!names.insert(tag.name).second)
        {
            return Status::Error("vendor tag " + section + "." + tag.name + " is declared twice");
        }
    }
    const Section* pExisting = FindLocked(section);
    if ((pExisting != nullptr) && !SameTags(pExisting->tags, tags))
    {
        return Status::Error("vendor tag section " + section +
                             " is already registered with different tags");
    }
    if ((pExisting == nullptr) && (m_sections.size() >= kMaxSections))
    {
        return Status::Error("no room for vendor tag section " + section);
    }
    return Status::Ok();
}

Status VendorTagRegistry::RegisterLocked(const std::string&                      section,
                                         const std::vector<VendorTagDefinition>& tags,
                                         UINT32*                                 pBase)
{
    Status status = ValidateSectionLocked(section, tags);
    if (!status)
    {
        return status;
    }
    const Section* pExisting = FindLocked(section);
    if (pExisting == nullptr)
    {
        Section added;
        added.name = section;
        added.base = kFirstBase + (static_cast<UINT32>(m_sections.size()) << kSectionShift);
        added.tags = tags;
        m_sectionIndex[section] = m_sections.size();
        m_sections.push_back(added);
        pExisting = &m_sections.back();
    }
    if (pBase != nullptr)
    {
        *pBase = pExisting->base;
    }
    return Status::Ok();
}

Status VendorTagRegistry::RegisterSection(const std::string&                      section,
                                          const std::vector<VendorTagDefinition>& tags,
                                          UINT32*                                 pBase)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return RegisterLocked(section, tags, pBase);
}

Status VendorTagRegistry::ConvertSection(const CHIVENDORTAGSECTIONDATA& data, Section* pSection)
{
    if (data.pVendorTagSectionName == nullptr)
    {
        return Status::Error("vendor tag section with a null name");
    }
    pSection->name = data.pVendorTagSectionName;
    if ((data.numTags > 0) && (data.pVendorTagData == nullptr))
    {
        return Status::Error("vendor tag section " + pSection->name + " declares " +
                             std::to_string(data.numTags) + " tags but no tag table");
    }
    if (data.numTags > kMaxTagsPerSection)
    {
        return Status::Error("vendor tag section " + pSection->name + " declares too many tags");
    }
    for (UINT32 i = 0; i < data.numTags; ++i)
    {
        const CHIVENDORTAGDATA& tag = data.pVendorTagData[i];
        if (tag.pVendorTagName == nullptr)
        {
            return Status::Error("vendor tag " + std::to_string(i) + " of section " +
                                 pSection->name + " has a null name");
        }
        pSection->tags.push_back({tag.pVendorTagName, tag.vendorTagType, tag.numUnits});
    }
    return Status::Ok();
}

Status VendorTagRegistry::ValidateBatchLocked(const std::vector<Section>& batch) const
{
    std::map<std::string, size_t> first;
    size_t                        added = 0;
    for (size_t k = 0; k < batch.size(); ++k)
    {
        Status status = ValidateSectionLocked(batch[k].name, batch[k].tags);
        auto   entry  = first.emplace(batch[k].name, k);
        if (status && !entry.second && !SameTags(batch[entry.first->second].tags, batch[k].tags))
        {
            status = Status::Error("vendor tag section " + batch[k].name +
                                   " appears twice with different tags");
        }
        if (!status)
        {
            return status;
        }
        added += (entry.second && (FindLocked(batch[k].name) == nullptr)) ? 1 : 0;
    }
    if (m_sections.size() + added > kMaxSections)
    {
        return Status::Error("no room for " + std::to_string(added) + " more vendor tag sections");
    }
    return Status::Ok();
}

Status VendorTagRegistry::RegisterSections(const CHIVENDORTAGINFO& info,
                                           std::vector<UINT32>*    pBases)
{
    if ((info.numSections > 0) && (info.pVendorTagDataArray == nullptr))
    {
        return Status::Error("vendor tag answer declares " + std::to_string(info.numSections) +
                             " sections but no section table");
    }
    std::vector<Section> batch(info.numSections);
    for (UINT32 k = 0; k < info.numSections; ++k)
    {
        Status status = ConvertSection(info.pVendorTagDataArray[k], &batch[k]);
        if (!status)
        {
            return status;
        }
    }
    // Everything is checked before anything is registered, so a bad table leaves no trace.
    std::lock_guard<std::mutex> lock(m_mutex);
    Status                      status = ValidateBatchLocked(batch);
    for (size_t k = 0; status && (k < batch.size()); ++k)
    {
        (void)RegisterLocked(batch[k].name, batch[k].tags, &batch[k].base);
        if (pBases != nullptr)
        {
            pBases->push_back(batch[k].base);
        }
    }
    return status;
}

const VendorTagRegistry::Section* VendorTagRegistry::FindLocked(const std::string& section) const
{
    auto found = m_sectionIndex.find(section);
    return (found == m_sectionIndex.end()) ? nullptr : &m_sections[found->second];
}

bool VendorTagRegistry::FindSectionBase(const std::string& section, UINT32* pBase) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const Section*              pSection = FindLocked(section);
    if ((pSection == nullptr) || (pBase == nullptr))
    {
        return false;
    }
    *pBase = pSection->base;
    return true;
}

bool VendorTagRegistry::FindTagId(const std::string& section,
                                  const std::string& tag,
                                  UINT32*            pTagId) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const Section*              pSection = FindLocked(section);
    if ((pSection == nullptr) || (pTagId == nullptr))
    {
        return false;
    }
    for (size_t i = 0; i < pSection->tags.size(); ++i)
    {
        if (pSection->tags[i].name == tag)
        {
            *pTagId = pSection->base + static_cast<UINT32>(i);
            return true;
        }
    }
    return false;
}

bool VendorTagRegistry::Describe(UINT32 tagId, VendorTagDescription* pDescription) const
{
    UINT32 id = tagId & ~ChiMetadataPoolMask;
    if ((id < kFirstBase) || (pDescription == nullptr))
    {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t                      sectionIndex = (id - kFirstBase) >> kSectionShift;
    size_t                      tagIndex     = id & ChiVendorTagIndexMask;
    if ((sectionIndex >= m_sections.size()) || (tagIndex >= m_sections[sectionIndex].tags.size()))
    {
        return false;
    }
    const Section&             section = m_sections[sectionIndex];
    const VendorTagDefinition& tag     = section.tags[tagIndex];
    *pDescription                      = {id, section.name, tag.name, tag.type, tag.count};
    return true;
}

size_t VendorTagRegistry::SectionCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sections.size();
}

CDKResult VendorTagRegistry::GetVendorTagBase(CHIVENDORTAGBASEINFO* pInfo) const
{
    if (pInfo == nullptr)
    {
        return CDKResultEInvalidPointer;
    }
    if (pInfo->size < sizeof(CHIVENDORTAGBASEINFO))
    {
        return CDKResultEFailed;
    }
    if (pInfo->pComponentName == nullptr)
    {
        return CDKResultEInvalidPointer;
    }
    UINT32 answer = 0;
    bool   found  = (pInfo->pTagName == nullptr)
                        ? FindSectionBase(pInfo->pComponentName, &answer)
                        : FindTagId(pInfo->pComponentName, pInfo->pTagName, &answer);
    if (!found)
    {
        return CDKResultENoSuch;
    }
    pInfo->vendorTagBase = answer;
    return CDKResultSuccess;
}

} // namespace chihost
