// What identifies the software of a run: the tool's version (the CMake project's) and the build
// of the node library it loads, told by the GNU build ID the linker writes into the library. The
// ID is read from the file's notes, so the library is never loaded to learn it.
#ifndef ZELK_TOOLS_OISVERIFY_TOOLVERSION_H
#define ZELK_TOOLS_OISVERIFY_TOOLVERSION_H

#include <stddef.h>

#include <string>

namespace oisverify
{

extern const char* const kToolVersion;

// The GNU build ID of a 64-bit little-endian ELF image as lower-case hex; empty when the bytes
// are not such an image, are cut short or hold no build ID.
std::string ElfBuildIdOf(const unsigned char* pBytes, size_t size);

// The same for a file; empty when it cannot be read. Reads at most the file's first megabyte
// (the notes come right after the headers).
std::string ElfBuildId(const std::string& path);

// What "--version" prints: the tool's version, the node library's path and its build.
std::string VersionText(const std::string& nodeLibraryPath);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_TOOLVERSION_H
