// A minimal CHI node used to exercise the host emulator: it answers a vendor-tag query with one
// section, takes the host interface, reads the sensor EEPROM record when created, and on each
// request reads "state" from the request's settings and publishes four results in one set call.
// It records what it saw so that tests can check what the host handed it.
#ifndef ZELK_TESTS_UNIT_EMULATOR_FAKENODE_H
#define ZELK_TESTS_UNIT_EMULATOR_FAKENODE_H

#include <stdint.h>

#define FAKE_NODE_SECTION "com.zelk.test.fakenode"
#define FAKE_NODE_OBSERVE_SYMBOL "FakeNodeObserve"

// Property whose value text "delayed" makes the node ask for delayed-processing notification.
static const uint32_t kFakeNodeDelayProperty = 7;

struct FakeNodeObservations
{
    uint32_t entryTableSize; // size field of the table ChiNodeEntry received
    uint32_t interfaceSize;  // size field of the host interface it was handed
    uint32_t sectionBase;    // its section base, as the host answered it
    int32_t  sectionBaseResult;
    int64_t  eepromGainMatch; // "OISGyroGainAndSRMatch" from the EEPROM record, -1 when absent
    void*    createSession;   // hChiSession of the last create
    uint32_t createPropertyCount;
    char     firstPropertyText[64];
    int32_t  liveNodes;
};

extern "C" typedef const FakeNodeObservations* (*PFNFAKENODEOBSERVE)();

#endif // ZELK_TESTS_UNIT_EMULATOR_FAKENODE_H
