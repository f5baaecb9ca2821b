// Logical camera table of the emulated device (odm/lib64/camera/libchxlogicalcameratable.so).
// On a phone this library describes the whole camera configuration; the node asks it only which
// system property holds a camera module's gyro gains, so this substitute answers that question:
// camera role id -> "persist.vendor.camera.oisgyrogain.<role short name>". The library exports
// getLogicalCameraTable and nothing else (see logicalcameratable.map).
#include "logicalcameratable.h"

namespace
{

class EmulatedLogicalCameraTable final : public LogicalCameraTable
{
public:
    // Entries 1-11 are the device's camera configuration (sensor modes, logical camera
    // compositions and the like). No caller of this emulated device uses them; they answer
    // nullptr, meaning "no such configuration".
    void* ConfigurationEntry1() override { return nullptr; }
    void* ConfigurationEntry2() override { return nullptr; }
    void* ConfigurationEntry3() override { return nullptr; }
    void* ConfigurationEntry4() override { return nullptr; }
    void* ConfigurationEntry5() override { return nullptr; }
    void* ConfigurationEntry6() override { return nullptr; }
    void* ConfigurationEntry7() override { return nullptr; }
    void* ConfigurationEntry8() override { return nullptr; }
    void* ConfigurationEntry9() override { return nullptr; }
    void* ConfigurationEntry10() override { return nullptr; }
    void* ConfigurationEntry11() override { return nullptr; }

    const GyroGainPropertyTable* GetGyroGainPropertyTable() override { return &GainTable(); }

private:
    // Role id -> property named after the role's short name. The names are literals, so the
    // pointers stay valid for as long as the library is mapped.
    static const GyroGainPropertyTable& GainTable()
    {
        static const GyroGainPropertyTable s_table = {{
            {0, "persist.vendor.camera.oisgyrogain.w"},
            {1, "persist.vendor.camera.oisgyrogain.f"},
            {20, "persist.vendor.camera.oisgyrogain.t"},
            {21, "persist.vendor.camera.oisgyrogain.u"},
            {22, "persist.vendor.camera.oisgyrogain.m"},
            {23, "persist.vendor.camera.oisgyrogain.t4"},
            {24, "persist.vendor.camera.oisgyrogain.m2"},
            {25, "persist.vendor.camera.oisgyrogain.d"},
            {26, "persist.vendor.camera.oisgyrogain.t2"},
            {27, "persist.vendor.camera.oisgyrogain.t3"},
            {28, "persist.vendor.camera.oisgyrogain.t5"},
            {29, "persist.vendor.camera.oisgyrogain.ta"},
            {40, "persist.vendor.camera.oisgyrogain.fd"},
        }};
        return s_table;
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) LogicalCameraTable* getLogicalCameraTable()
{
    static EmulatedLogicalCameraTable s_table;
    return &s_table;
}
