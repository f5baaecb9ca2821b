// The OIS calibration persist file: one comma-separated record per camera module (calibration
// flag, fuse ID, gyro gain X, gyro gain Y, CRC-16 of the first four columns), and the manager that
// keeps the records of that file in memory, looks up a module's fuse ID from its camera role and
// rewrites the file with new gains. The line reader, the column split and the CRC are public so
// that the host's calibration service and tools read the file exactly as the node does.
#ifndef ZELK_CALIBRATION_OISCALIBRATIONFILE_H
#define ZELK_CALIBRATION_OISCALIBRATIONFILE_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "chitypes.h"

// One persist-file record; the text fields are kept exactly as they stand in the file.
struct OISCalData
{
    std::string calibFlag; // "1" written by a calibration, "0" otherwise
    std::string fuseId;    // the module's fuse ID; the key records are matched by
    std::string gainX;     // "%f" text of the float gain
    std::string gainY;
    uint16_t      crc;       // as stored; only a rewrite of the record recomputes it
};

// One line of a persist file as read (line feed removed, a carriage return kept).
struct OISPersistLine
{
    std::string text;
    INT32       columnCount; // a record has exactly five; 0 for a line too long to be one
    OISCalData  record;      // filled only for a line of five columns
    bool        tooLong = false; // longer than kMaxPersistLineBytes; text holds its start only
};

class OISCalibrationFile
{
public:
    // Device path of the persist file; the host kit maps it under the device root.
    static const CHAR* const kPersistFilePath;
    static constexpr INT32   kColumnCount = 5;

    OISCalibrationFile();
    ~OISCalibrationFile();

    // Replaces the records by those of the persist file; a missing or unreadable file (or one
    // that is not a regular file) leaves none. Lines that are not five columns are logged and
    // skipped; CRCs are not checked.
    void ParsePersistFile();

    // Sets the gains of the module of camera role cameraId (decimal text) in the records,
    // replacing its first record or appending one, and rewrites the file in up to three
    // attempts. enable non-zero marks the record as calibrated and requires a known fuse ID and
    // gains inside the accepted intervals. A record that would not read back as written (a fuse
    // ID with a comma, a line break or blanks at either end) is refused. Each attempt rereads the
    // file under the folder's lock, so records other writers stored meanwhile are kept, and a file
    // that cannot be read in full is not rewritten at all. True when the file was written and is
    // not empty.
    bool OverwriteCalibrationData(const std::string& cameraId, FLOAT gainX, FLOAT gainY, INT32 enable);

    // CRC-16/KERMIT of calibFlag, fuseId, gainX and gainY joined without separator; the stored
    // crc never enters. 0 for a null record.
    static uint16_t GetCrc(const OISCalData* pData);

    const std::vector<OISCalData>& Records() const { return m_calData; }

    // Splits one line into its columns where the file's separator (a comma with any white space
    // around it) stands, with the usual token-split rules: the text before the first comma is
    // always a column, an empty line is one empty column, a comma at the very end adds none.
    static void SplitPersistLine(const std::string& line, std::vector<std::string>* pColumns);

    // The CRC column as atoi reads it (leading blanks, a sign, digits up to the first other
    // character, 0 without digits), truncated to its low 16 bits.
    static uint16_t ParseCrcColumn(const std::string& text);

    // Reads every line of an open file. False when reading failed (e.g. the path is a directory);
    // the lines read until then are kept. Lines longer than any record are marked too long.
    static bool ReadPersistLines(FILE* pFile, std::vector<OISPersistLine>* pLines);

    // One line as read: its columns and, for five of them, the record.
    static OISPersistLine MakePersistLine(const std::string& text, bool tooLong);

    // Whether the record's line reads back as the same record (fields and CRC).
    static bool ReadsBackAs(const OISCalData& record);

    // The fuse ID inside a fuse-ID property value: characters 4 to 7 are its length in decimal,
    // the ID starts at character 8 (shorter if the value ends first). False for a value shorter
    // than 8 characters or whose length field is not a non-negative number.
    static bool ParseFuseIdValue(const std::string& value, std::string* pFuseId);

    // Whether a gyro gain lies in one of the two accepted closed intervals.
    static bool IsGainInRange(FLOAT gain);

    // The line written for a record, line feed included.
    static std::string FormatRecordLine(const OISCalData& record);

private:
    OISCalibrationFile(const OISCalibrationFile&)            = delete;
    OISCalibrationFile& operator=(const OISCalibrationFile&) = delete;

    enum class ReadResult
    {
        Read,       // the whole file, or no file at all
        NotRegular,
        Failed,     // too large, unreadable, or a read error part way
    };

    std::string LookUpFuseId(INT32 roleId) const;
    void        StoreGains(const std::string& fuseId, FLOAT gainX, FLOAT gainY, INT32 enable);
    static ReadResult ReadRecords(std::vector<OISCalData>* pRecords, bool logRecords);
    // One locked attempt: reread, store the gains, write a temporary file and rename it over
    // the old one. *pAbort is set when the file must not be rewritten at all.
    bool RewriteAttempt(const std::string& fuseId, FLOAT gainX, FLOAT gainY, INT32 enable, bool* pAbort);
    bool WriteAndReplace(int folderFd, const std::string& name) const;

    std::vector<OISCalData> m_calData; // file order; appended records go to the end
};

#endif // ZELK_CALIBRATION_OISCALIBRATIONFILE_H
