// A library at the measurement library's path that lacks its entry function, for binding tests.
extern "C" __attribute__((visibility("default"))) int NotTheMeasurementEntry()
{
    return 0;
}
