#!/usr/bin/env python3
"""Writes a station's worth of collected results for timing "oisverify stats": COUNT modules,
each a folder station-NN/<fuse ID>/ with the node's oisVerify.json and, for the modules the node
calibrated (about a third), the persist file com.zelk.oiscal.bin with its record. SR is drawn
around 20 dB (sigma 1.5); about 0.5 % of the reports are cut short and about 0.1 % are not JSON
at all, so the skipping path is timed too. Seeded: the same COUNT gives the same files.

    python3 bench/generate_reports.py DIR COUNT
"""
import os
import random
import sys

STATIONS = 20

REPORT = """{
\t"Version":\t{
\t\t"version":\t"V1.0"
\t},
\t"AlgoRunningEnvInfo":\t{
\t\t"algoInput":\t{
\t\t\t"width":\t540,
\t\t\t"height":\t540,
\t\t\t"algoExecFPS":\t60.077518
\t\t},
\t\t"InitParam":\t{
\t\t\t"isDumpImage":\t0,
\t\t\t"isDebugMode":\t0,
\t\t\t"dropFrameNum":\t120,
\t\t\t"oisStationFreq":\t4,
\t\t\t"minFrameLimit":\t31,
\t\t\t"maxExecTime":\t688
\t\t}
\t},
\t"Result":\t{
\t\t"SR":\t{
\t\t\t"oisVerifyState":\t%(state)d,
\t\t\t"skipAlgoFrameNum":\t0,
\t\t\t"algoReturnValue":\t0,
\t\t\t"horSR":\t%(hor)f,
\t\t\t"verSR":\t%(ver)f,
\t\t\t"horBlur":\t%(horBlur)f,
\t\t\t"verBlur":\t%(verBlur)f
\t\t},
\t\t"GyroGainCalibrate":\t{
\t\t\t"isGyroGainCalibrate":\t%(calibrated)d,
\t\t\t"horGain":\t%(gainX)f,
\t\t\t"verGain":\t%(gainY)f
\t\t}
\t}
}"""


def crc16_kermit(text):
    crc = 0
    for byte in text.encode():
        crc ^= byte
        for _ in range(8):
            crc = (crc >> 1) ^ 0x8408 if crc & 1 else crc >> 1
    return crc


def blur(sr_db):
    # The simulator's scale: SR = 10 log10(181.248 / blur) + 4.
    return 181.248 / (10 ** ((sr_db - 4.0) / 10.0))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    root, count = sys.argv[1], int(sys.argv[2])
    rng = random.Random(1)
    for index in range(count):
        fuse_id = "ZKG%07d" % index
        folder = os.path.join(root, "station-%02d" % (index % STATIONS), fuse_id)
        os.makedirs(folder, exist_ok=True)
        calibrated = rng.random() < 0.33
        state = -12 if rng.random() < 0.01 else 4
        hor, ver = rng.gauss(20.0, 1.5), rng.gauss(20.0, 1.5)
        gain_x = round(rng.choice([0.9, 0.95, 1.0, 1.05, 1.1]), 2) if calibrated else 0.0
        gain_y = round(rng.choice([0.9, 0.95, 1.0, 1.05, 1.1]), 2) if calibrated else 0.0
        text = REPORT % dict(state=state, hor=hor, ver=ver, horBlur=blur(hor), verBlur=blur(ver),
                             calibrated=1 if calibrated else 0, gainX=gain_x, gainY=gain_y)
        fault = rng.random()
        if fault < 0.005:
            text = text[: len(text) // 2]
        elif fault < 0.006:
            text = "\x00\x01 not a report"
        with open(os.path.join(folder, "oisVerify.json"), "w") as out:
            out.write(text)
        if calibrated:
            fields = ["1", fuse_id, "%f" % gain_x, "%f" % gain_y]
            with open(os.path.join(folder, "com.zelk.oiscal.bin"), "w") as out:
                out.write(",".join(fields) + ",%d\n" % crc16_kermit("".join(fields)))


if __name__ == "__main__":
    main()
