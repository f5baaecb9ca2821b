// The module of every camera role: each role's own fuse-ID property, the fallback order of the
// roles that have one, and the long-named properties, which describe the roles but are never read.
#include "calibrationtestsupport.h"
#include "oiscalibrationfile.h"

namespace
{

using calibtest::CalibrationTest;
using calibtest::FuseIdValue;

struct RoleCase
{
    const char*                                      name;
    INT32                                            role;
    std::vector<std::pair<const char*, std::string>> properties;
    std::string                                      fuseId; // empty: no module found
};

void PrintTo(const RoleCase& c, std::ostream* pOut) { *pOut << c.name; }

class RoleTable : public CalibrationTest, public ::testing::WithParamInterface<RoleCase> {};

TEST_P(RoleTable, FindsTheRolesModule)
{
    for (const auto& property : GetParam().properties)
    {
        ASSERT_EQ(property_set(property.first, property.second.c_str()), 0);
    }
    OISCalibrationFile       file;
    calibtest::StreamCapture out(STDOUT_FILENO);
    const bool written = file.OverwriteCalibrationData(std::to_string(GetParam().role), 1.0f, 1.0f, 1);
    if (!GetParam().fuseId.empty())
    {
        EXPECT_TRUE(written);
        EXPECT_EQ(ReadPersist().rfind(std::string("1,") + GetParam().fuseId + ",1.000000,1.000000,", 0), 0u)
            << ReadPersist();
    }
    else
    {
        EXPECT_FALSE(written);
        EXPECT_EQ(out.Text(), "can't find camera[" + std::to_string(GetParam().role) + "] fuseid\n");
    }
}

RoleCase Own(const char* name, INT32 role, const char* property)
{
    const std::string id = "ID" + std::to_string(role);
    return RoleCase{ name, role, { { property, FuseIdValue(id) } }, id };
}

std::vector<RoleCase> Cases()
{
    std::vector<RoleCase> cases = {
        Own("Role0", 0, "vendor.camera.sensor.w.fuseID"),     Own("Role1", 1, "vendor.camera.sensor.f.fuseID"),
        Own("Role20", 20, "vendor.camera.sensor.t.fuseID"),   Own("Role21", 21, "vendor.camera.sensor.u.fuseID"),
        Own("Role22", 22, "vendor.camera.sensor.m.fuseID"),   Own("Role23", 23, "vendor.camera.sensor.t4.fuseID"),
        Own("Role24", 24, "vendor.camera.sensor.m2.fuseID"),  Own("Role25", 25, "vendor.camera.sensor.d.fuseID"),
        Own("Role26", 26, "vendor.camera.sensor.t2.fuseID"),  Own("Role27", 27, "vendor.camera.sensor.t3.fuseID"),
        Own("Role28", 28, "vendor.camera.sensor.t5.fuseID"),  Own("Role29", 29, "vendor.camera.sensor.ta.fuseID"),
        Own("Role40", 40, "vendor.camera.sensor.fd.fuseID"),
    };
    static const char t2[] = "vendor.camera.sensor.t2.fuseID";
    static const char t3[] = "vendor.camera.sensor.t3.fuseID";
    static const char t5[] = "vendor.camera.sensor.t5.fuseID";
    static const char ta[] = "vendor.camera.sensor.ta.fuseID";
    cases.push_back({ "Role20FirstFallbackT2", 20, { { t3, FuseIdValue("T3") }, { t2, FuseIdValue("T2") } }, "T2" });
    cases.push_back({ "Role20SecondFallbackT3", 20, { { t3, FuseIdValue("T3") } }, "T3" });
    cases.push_back({ "Role23FirstFallbackT5", 23, { { ta, FuseIdValue("TA") }, { t5, FuseIdValue("T5") } }, "T5" });
    cases.push_back({ "Role23SecondFallbackTa", 23, { { ta, FuseIdValue("TA") } }, "TA" });
    cases.push_back({ "Role21HasNoFallback", 21, { { t2, FuseIdValue("T2") }, { t5, FuseIdValue("T5") } }, "" });
    cases.push_back({ "LongNamesAreNotRead", 0,
                      { { "vendor.camera.sensor.rearMain.fuseID", FuseIdValue("MAIN") },
                        { "vendor.camera.sensor.rearTele.fuseID", FuseIdValue("TELE") } },
                      "" });
    cases.push_back({ "LongNameOfTeleNotAFallback", 20,
                      { { "vendor.camera.sensor.rearTele.fuseID", FuseIdValue("TELE") } }, "" });
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Roles, RoleTable, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<RoleCase>& info) { return std::string(info.param.name); });

} // namespace
