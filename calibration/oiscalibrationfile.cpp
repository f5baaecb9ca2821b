// Manager of the OIS calibration persist-file records; see oiscalibrationfile.h.
#include "oiscalibrationfile.h"

OISCalibrationFile::OISCalibrationFile()
    : m_calData()
{
}

OISCalibrationFile::~OISCalibrationFile() = default;
