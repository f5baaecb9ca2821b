// The tool's version and the node library's build; see toolversion.h.
#include "report/toolversion.h"

#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace oisverify
{

#ifndef ZELK_TOOL_VERSION
#error "ZELK_TOOL_VERSION is set by the build from the project's version"
#endif
const char* const kToolVersion = ZELK_TOOL_VERSION;

namespace
{

constexpr size_t kMaxReadBytes = 1u << 20;
constexpr size_t kNoteAlignBytes = 4;

// Whether [offset, offset + length) lies within size bytes, without overflow.
bool Within(uint64_t offset, uint64_t length, size_t size)
{
    return offset <= size && length <= size - offset;
}

size_t AlignUp(size_t value)
{
    return (value + kNoteAlignBytes - 1) & ~(kNoteAlignBytes - 1);
}

std::string Hex(const unsigned char* pBytes, size_t count)
{
    static const char kDigits[] = "0123456789abcdef";
    std::string       hex;
    for (size_t i = 0; i < count; i++)
    {
        hex.push_back(kDigits[pBytes[i] >> 4]);
        hex.push_back(kDigits[pBytes[i] & 0xF]);
    }
    return hex;
}

// The build ID among the notes of one PT_NOTE segment's bytes.
std::string BuildIdInNotes(const unsigned char* pNotes, size_t size)
{
    size_t at = 0;
    while (Within(at, sizeof(Elf64_Nhdr), size))
    {
        Elf64_Nhdr header;
        memcpy(&header, pNotes + at, sizeof(header));
        const size_t nameAt = at + sizeof(header);
        if (!Within(nameAt, AlignUp(header.n_namesz), size) ||
            !Within(nameAt + AlignUp(header.n_namesz), AlignUp(header.n_descsz), size))
        {
            return "";
        }
        const size_t descAt = nameAt + AlignUp(header.n_namesz);
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 && memcmp(pNotes + nameAt, "GNU", 4) == 0 &&
            header.n_descsz != 0)
        {
            return Hex(pNotes + descAt, header.n_descsz);
        }
        at = descAt + AlignUp(header.n_descsz);
    }
    return "";
}

} // namespace

std::string ElfBuildIdOf(const unsigned char* pBytes, size_t size)
{
    Elf64_Ehdr header;
    if (size < sizeof(header))
    {
        return "";
    }
    memcpy(&header, pBytes, sizeof(header));
    if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_ident[EI_DATA] != ELFDATA2LSB || header.e_phentsize < sizeof(Elf64_Phdr))
    {
        return "";
    }
    for (uint32_t i = 0; i < header.e_phnum; i++)
    {
        const uint64_t at = header.e_phoff + static_cast<uint64_t>(i) * header.e_phentsize;
        if (at < header.e_phoff || !Within(at, sizeof(Elf64_Phdr), size))
        {
            return "";
        }
        Elf64_Phdr segment;
        memcpy(&segment, pBytes + at, sizeof(segment));
        if (segment.p_type != PT_NOTE || !Within(segment.p_offset, segment.p_filesz, size))
        {
            continue;
        }
        const std::string id = BuildIdInNotes(pBytes + segment.p_offset, segment.p_filesz);
        if (!id.empty())
        {
            return id;
        }
    }
    return "";
}

std::string ElfBuildId(const std::string& path)
{
    // Non-blocking, and only a regular file: a FIFO named as the library must not hang the tool.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
    {
        return "";
    }
    struct stat info;
    std::vector<unsigned char> bytes;
    if (fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode))
    {
        bytes.resize(static_cast<size_t>(info.st_size) < kMaxReadBytes ? static_cast<size_t>(info.st_size)
                                                                        : kMaxReadBytes);
        size_t filled = 0;
        while (filled < bytes.size())
        {
            const ssize_t n = read(descriptor, bytes.data() + filled, bytes.size() - filled);
            if (n <= 0)
            {
                break;
            }
            filled += static_cast<size_t>(n);
        }
        bytes.resize(filled);
    }
    close(descriptor);
    return ElfBuildIdOf(bytes.data(), bytes.size());
}

std::string VersionText(const std::string& nodeLibraryPath)
{
    char        resolved[PATH_MAX];
    const bool  found = realpath(nodeLibraryPath.c_str(), resolved) != nullptr;
    std::string text  = std::string("oisverify ") + kToolVersion + "\n";
    if (!found)
    {
        return text + "node library  " + nodeLibraryPath + " (not found)\n";
    }
    const std::string id = ElfBuildId(resolved);
    return text + "node library  " + resolved + "\nnode build    " +
           (id.empty() ? std::string("unknown (no GNU build ID)") : "GNU build ID " + id) + "\n";
}

} // namespace oisverify
