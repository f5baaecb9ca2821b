// File access of the OIS calibration persist file, built so that a camera request never waits on
// the file and no record is ever lost: reading refuses anything but a regular file of bounded
// size and never blocks on the open, lines are read with a bounded length, and a rewrite runs
// under an exclusive lock on the file's folder, writes a temporary file beside the real one, makes
// it durable and renames it over the old file, so that a crash at any instant leaves either the
// old or the new file. The system calls that touch data go through a replaceable table, the
// seam through which tests inject read faults, short disks and crashes at chosen points.
#ifndef ZELK_CALIBRATION_PERSISTFILEIO_H
#define ZELK_CALIBRATION_PERSISTFILEIO_H

#include <stddef.h>
#include <stdio.h>
#include <sys/types.h>

#include <functional>
#include <string>

// The data calls of the persist-file code. Every member must be set.
struct PersistFileIo
{
    ssize_t (*read)(int fd, void* pBuffer, size_t bytes);
    ssize_t (*write)(int fd, const void* pBuffer, size_t bytes);
    int (*renameAt)(int fromFolderFd, const char* pFrom, int toFolderFd, const char* pTo);
};

// Replaces the table (nullptr: the system's own calls). For tests; not thread-safe against
// running persist-file operations.
void SetPersistFileIo(const PersistFileIo* pIo);
const PersistFileIo& CurrentPersistFileIo();

// No record line can be longer: a flag, a fuse ID (a property value holds at most 91 bytes),
// two "%f" floats and the CRC, with room to spare for blanks around the separators.
const size_t kMaxPersistLineBytes = 1024;
// A persist file holds one line per module ever calibrated on the device; a larger file is not
// one, and reading it would only cost memory.
const size_t kMaxPersistFileBytes = 4u << 20;

// Splits a byte stream into lines at line feeds, keeping at most kMaxPersistLineBytes of a line:
// a longer line is reported as too long and the rest of it is skipped as it streams by.
class PersistLineReader
{
public:
    // Reads up to `bytes` into the buffer: the count read, 0 at the end, negative on an error
    // (errno set).
    using Source = std::function<ssize_t(char* pBuffer, size_t bytes)>;

    explicit PersistLineReader(Source source) : m_source(std::move(source)) {}

    // The next line without its line feed; false at the end or on a read error (see Failed).
    bool Next(std::string* pLine, bool* pTooLong);
    bool Failed() const { return m_failed; }
    int Error() const { return m_error; }
    size_t BytesRead() const { return m_bytesRead; }

private:
    bool Fill();

    Source m_source;
    char   m_buffer[4096];
    size_t m_begin     = 0;
    size_t m_end       = 0;
    size_t m_bytesRead = 0;
    bool   m_atEnd     = false;
    bool   m_failed    = false;
    int    m_error     = 0;
};

enum class PersistOpenResult
{
    Opened,
    Missing,    // no such file
    NotRegular, // a FIFO, device, directory, socket or symbolic link
    TooLarge,
    Failed,     // any other error: errno-style code in *pError
};

// Opens a persist file for reading without ever blocking (a FIFO without a writer would block a
// plain open) and only if it is a regular file of at most kMaxPersistFileBytes. The descriptor
// is returned in blocking mode. A symbolic link is not followed.
PersistOpenResult OpenPersistForReading(const char* pPath, int* pFd, int* pError);

// A Source reading a descriptor through the seam.
PersistLineReader::Source DescriptorSource(int fd);

// An exclusive lock on the persist file's folder, shared by every writer on the device: each
// holder opens the folder on its own, so two writers in one process exclude each other too.
// Waits at most kLockWaitMs.
class PersistFolderLock
{
public:
    static const int kLockWaitMs = 1000;

    PersistFolderLock() = default;
    ~PersistFolderLock();

    enum class Result { Locked, NoFolder, Busy };
    Result Acquire(const std::string& folder);
    int FolderFd() const { return m_folderFd; }

private:
    PersistFolderLock(const PersistFolderLock&)            = delete;
    PersistFolderLock& operator=(const PersistFolderLock&) = delete;

    int m_folderFd = -1;
};

// Folder and file name of a path ("" folder for a bare name is taken as ".").
void SplitPersistPath(const std::string& path, std::string* pFolder, std::string* pName);

#endif // ZELK_CALIBRATION_PERSISTFILEIO_H
