// Logical camera table (odm/lib64/camera/libchxlogicalcameratable.so): the device's camera
// configuration. This node only asks it which system property holds a camera role's gyro gains
// ("gainX,gainY").
#ifndef ZELK_PLATFORM_LOGICALCAMERATABLE_H
#define ZELK_PLATFORM_LOGICALCAMERATABLE_H

#include <map>

#include "chitypes.h"

struct GyroGainPropertyTable
{
    std::map<UINT32, const CHAR*> roleToProperty; // camera role -> gain property name
};

// The object returned by getLogicalCameraTable. Its first eleven virtual entries belong to the
// device's camera configuration and are never called by this node; they are declared only so
// that the gain table is the twelfth entry of the vtable. No virtual destructor may precede it.
class LogicalCameraTable
{
public:
    virtual void* ConfigurationEntry1()  = 0;
    virtual void* ConfigurationEntry2()  = 0;
    virtual void* ConfigurationEntry3()  = 0;
    virtual void* ConfigurationEntry4()  = 0;
    virtual void* ConfigurationEntry5()  = 0;
    virtual void* ConfigurationEntry6()  = 0;
    virtual void* ConfigurationEntry7()  = 0;
    virtual void* ConfigurationEntry8()  = 0;
    virtual void* ConfigurationEntry9()  = 0;
    virtual void* ConfigurationEntry10() = 0;
    virtual void* ConfigurationEntry11() = 0;
    virtual const GyroGainPropertyTable* GetGyroGainPropertyTable() = 0;

protected:
    ~LogicalCameraTable() = default;
};

extern "C" typedef LogicalCameraTable* (*PFNGETLOGICALCAMERATABLE)();

#define LOGICAL_CAMERA_TABLE_LIBRARY_PATH "odm/lib64/camera/libchxlogicalcameratable.so"
#define LOGICAL_CAMERA_TABLE_SYMBOL       "getLogicalCameraTable"

#endif // ZELK_PLATFORM_LOGICALCAMERATABLE_H
