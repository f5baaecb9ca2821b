// Log macros of the calibration persist-file code: the Android log under the tag
// "CalibrationData".
#ifndef ZELK_CALIBRATION_CALIBRATIONLOG_H
#define ZELK_CALIBRATION_CALIBRATIONLOG_H

#include "androidservices.h"

#define CAL_LOG_TAG "CalibrationData"
#define CAL_LOG_ERROR(fmt, ...) __android_log_print(ANDROID_LOG_ERROR, CAL_LOG_TAG, fmt, ##__VA_ARGS__)
#define CAL_LOG_INFO(fmt, ...)  __android_log_print(ANDROID_LOG_INFO, CAL_LOG_TAG, fmt, ##__VA_ARGS__)
#define CAL_LOG_DEBUG(fmt, ...) __android_log_print(ANDROID_LOG_DEBUG, CAL_LOG_TAG, fmt, ##__VA_ARGS__)

#endif // ZELK_CALIBRATION_CALIBRATIONLOG_H
