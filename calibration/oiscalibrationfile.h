// The OIS calibration persist file: one comma-separated record per camera module (calibration
// flag, fuse ID, gyro gain X, gyro gain Y, CRC-16 of the first four columns), and the manager that
// keeps the records of that file in memory.
#ifndef ZELK_CALIBRATION_OISCALIBRATIONFILE_H
#define ZELK_CALIBRATION_OISCALIBRATIONFILE_H

#include <stdint.h>

#include <string>
#include <vector>

// One persist-file record; the text fields are kept exactly as they stand in the file.
struct OISCalData
{
    std::string calibFlag;
    std::string fuseId;
    std::string gainX;
    std::string gainY;
    uint16_t    crc;
};

class OISCalibrationFile
{
public:
    OISCalibrationFile();
    ~OISCalibrationFile();

    const std::vector<OISCalData>& Records() const { return m_calData; }

private:
    std::vector<OISCalData> m_calData; // file order; appended records go to the end
};

#endif // ZELK_CALIBRATION_OISCALIBRATIONFILE_H
