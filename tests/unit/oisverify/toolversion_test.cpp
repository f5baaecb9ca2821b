// The node library's build as "--version" and the run summary tell it: the GNU build ID read from
// the ELF image's notes, and nothing (never a read past the bytes) for an image that is cut short
// or malformed.
#include <gtest/gtest.h>

#include <elf.h>
#include <string.h>
#include <sys/stat.h>

#include <functional>
#include <vector>

#include "clitestsupport.h"
#include "report/toolversion.h"

namespace
{

constexpr size_t kNotesAt = sizeof(Elf64_Ehdr) + 2 * sizeof(Elf64_Phdr);
constexpr char   kBuildIdHex[] = "000102030405060708090a0b0c0d0e0f10111213";

void AppendNote(std::vector<unsigned char>* pBytes, uint32_t type, const char* pName, uint32_t descSize)
{
    const Elf64_Nhdr header = { static_cast<Elf64_Word>(strlen(pName) + 1), descSize, type };
    const auto*      pRaw   = reinterpret_cast<const unsigned char*>(&header);
    pBytes->insert(pBytes->end(), pRaw, pRaw + sizeof(header));
    pBytes->insert(pBytes->end(), pName, pName + strlen(pName) + 1);
    pBytes->resize((pBytes->size() + 3) & ~size_t(3), 0);
    for (uint32_t i = 0; i < descSize; i++)
    {
        pBytes->push_back(static_cast<unsigned char>(i));
    }
    pBytes->resize((pBytes->size() + 3) & ~size_t(3), 0);
}

// A 64-bit image with a load segment and a note segment: an ABI tag, then the build ID.
std::vector<unsigned char> Image()
{
    std::vector<unsigned char> bytes(kNotesAt, 0);
    AppendNote(&bytes, NT_GNU_ABI_TAG, "GNU", 16);
    AppendNote(&bytes, NT_GNU_BUILD_ID, "GNU", 20);
    Elf64_Ehdr header = {};
    memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA]  = ELFDATA2LSB;
    header.e_phoff           = sizeof(Elf64_Ehdr);
    header.e_phentsize       = sizeof(Elf64_Phdr);
    header.e_phnum           = 2;
    memcpy(bytes.data(), &header, sizeof(header));
    Elf64_Phdr segments[2] = {};
    segments[0].p_type     = PT_LOAD;
    segments[0].p_filesz   = bytes.size();
    segments[1].p_type     = PT_NOTE;
    segments[1].p_offset   = kNotesAt;
    segments[1].p_filesz   = bytes.size() - kNotesAt;
    memcpy(bytes.data() + sizeof(header), segments, sizeof(segments));
    return bytes;
}

Elf64_Ehdr* Header(std::vector<unsigned char>* pBytes) { return reinterpret_cast<Elf64_Ehdr*>(pBytes->data()); }
Elf64_Phdr* Notes(std::vector<unsigned char>* pBytes)
{
    return reinterpret_cast<Elf64_Phdr*>(pBytes->data() + sizeof(Elf64_Ehdr)) + 1;
}
// The build ID note's header: after the ABI tag's 12-byte header, 4-byte name and 16-byte description.
constexpr size_t kBuildIdNoteAt = kNotesAt + 32;
Elf64_Nhdr*      BuildIdNote(std::vector<unsigned char>* pBytes)
{
    return reinterpret_cast<Elf64_Nhdr*>(pBytes->data() + kBuildIdNoteAt);
}

struct ImageCase
{
    const char*                                       name;
    std::function<void(std::vector<unsigned char>*)> edit;
    const char*                                       buildId;
};

void PrintTo(const ImageCase& c, std::ostream* pOut) { *pOut << c.name; }

class BuildIds : public ::testing::TestWithParam<ImageCase> {};

TEST_P(BuildIds, AreReadOnlyFromAWellFormedNote)
{
    std::vector<unsigned char> bytes = Image();
    GetParam().edit(&bytes);
    EXPECT_EQ(oisverify::ElfBuildIdOf(bytes.data(), bytes.size()), GetParam().buildId);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BuildIds,
    ::testing::Values(
        ImageCase{ "WellFormed", [](std::vector<unsigned char>*) {}, kBuildIdHex },
        ImageCase{ "CutInTheHeader", [](std::vector<unsigned char>* p) { p->resize(40); }, "" },
        ImageCase{ "CutInTheBuildId", [](std::vector<unsigned char>* p) { p->resize(p->size() - 1); }, "" },
        ImageCase{ "NotElf", [](std::vector<unsigned char>* p) { (*p)[1] = 'F'; }, "" },
        ImageCase{ "ThirtyTwoBit", [](std::vector<unsigned char>* p) { Header(p)->e_ident[EI_CLASS] = ELFCLASS32; }, "" },
        ImageCase{ "BigEndian", [](std::vector<unsigned char>* p) { Header(p)->e_ident[EI_DATA] = ELFDATA2MSB; }, "" },
        ImageCase{ "ShortSegmentEntries", [](std::vector<unsigned char>* p) { Header(p)->e_phentsize = 8; }, "" },
        ImageCase{ "SegmentTableOutside", [](std::vector<unsigned char>* p) { Header(p)->e_phoff = ~0ull - 8; }, "" },
        ImageCase{ "ManySegmentsOutside", [](std::vector<unsigned char>* p) { Header(p)->e_phnum = 0xFFFF; }, kBuildIdHex },
        ImageCase{ "NoteSegmentOutside", [](std::vector<unsigned char>* p) { Notes(p)->p_offset = ~0ull - 4; }, "" },
        ImageCase{ "NoteSegmentTooLong", [](std::vector<unsigned char>* p) { Notes(p)->p_filesz += 1; }, "" },
        ImageCase{ "DescriptionBeyondTheSegment",
                   [](std::vector<unsigned char>* p) { BuildIdNote(p)->n_descsz = 0xFFFFFFF0u; }, "" },
        ImageCase{ "NameBeyondTheSegment",
                   [](std::vector<unsigned char>* p) { BuildIdNote(p)->n_namesz = 0xFFFFFFFFu; }, "" },
        ImageCase{ "OtherOwner", [](std::vector<unsigned char>* p) { (*p)[kBuildIdNoteAt + sizeof(Elf64_Nhdr)] = 'X'; }, "" },
        ImageCase{ "OtherType", [](std::vector<unsigned char>* p) { BuildIdNote(p)->n_type = 5; }, "" },
        ImageCase{ "EmptyBuildId",
                   [](std::vector<unsigned char>* p) {
                       BuildIdNote(p)->n_descsz = 0;
                       Notes(p)->p_filesz -= 20;
                       p->resize(p->size() - 20);
                   },
                   "" }));

TEST(BuildIdOfAFile, IsReadFromRegularFilesOnly)
{
    clitest::TempFolder              folder;
    const std::vector<unsigned char> bytes = Image();
    clitest::WriteBytes(folder / "lib.so", 0);
    FILE* pFile = fopen((folder / "lib.so").c_str(), "wb");
    ASSERT_NE(pFile, nullptr);
    fwrite(bytes.data(), 1, bytes.size(), pFile);
    fclose(pFile);
    EXPECT_EQ(oisverify::ElfBuildId(folder / "lib.so"), kBuildIdHex);
    EXPECT_EQ(oisverify::ElfBuildId(folder / "missing.so"), "");
    EXPECT_EQ(oisverify::ElfBuildId(folder.Path()), "");
    // A FIFO nobody writes to: refused at once instead of waiting for a writer.
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(oisverify::ElfBuildId(folder / "fifo"), "");
}

TEST(VersionText, NamesTheToolAndALibraryThatIsMissing)
{
    EXPECT_EQ(oisverify::VersionText("/nonexistent/lib.so"),
              std::string("oisverify ") + oisverify::kToolVersion + "\nnode library  /nonexistent/lib.so (not found)\n");
}

} // namespace
