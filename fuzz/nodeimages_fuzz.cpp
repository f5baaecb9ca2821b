// Fuzz target of the node's request path with arbitrary input images: random width, height,
// stride, scanline, format, image count and plane size in CHIIMAGELISTs whose luma planes are
// allocated to exactly the size the list states (see nodefuzzimages.h), measured by a node in the
// verifying state (3) with no dropped frames, in debug mode or not, dumping crops or not. The
// sanitizers stop the run at any read past a plane; the target also aborts when a full request
// record is refused.
//
// Input: a flags byte (bit 0 debug mode, bit 1 dump crops, bits 2-3 pick the shake frequency
// 4, 20, 30 or 60 Hz at 60 fps, so 31, 7, 5 or 3 results decide), a request count byte (1 to 6),
// then per request a byte whose low three bits all set mean "the app writes no state" (otherwise
// it asks for 3) and up to three image-list descriptions after their count byte. The node is
// created per input with "vendor.debug.camera.oisAlgoPara" = 1:<debug>:<dump>:0:<Hz>:60 and
// receives a start request (state 1, frame 0) before the fuzzed ones.
#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "androidservices.h"
#include "nodefuzzhost.h"
#include "nodefuzzimages.h"

namespace
{

const char* const kTarget           = "nodeimages_fuzz";
const char* const kAlgoParaProperty = "vendor.debug.camera.oisAlgoPara";
const uint64_t    kMaxPlaneBytes    = 2048ull * 2048ull;
const uint32_t    kMaxRequests      = 6;
const uint32_t    kMaxListsPerRequest = 3;
const uint32_t    kShakeFrequenciesHz[4] = { 4, 20, 30, 60 };
const INT32       kStartState       = 1;
const INT32       kVerifyingState   = 3;

std::string AlgoParameters(uint8_t flags)
{
    char text[PROPERTY_VALUE_MAX];
    snprintf(text, sizeof(text), "1:%d:%d:0:%u:60", flags & 1, (flags >> 1) & 1, kShakeFrequenciesHz[(flags >> 2) & 3]);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    (void)pArgc;
    (void)pArgv;
    zelkfuzz::SetUpDevice(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    zelkfuzz::FuzzReader reader(pData, size);
    const uint8_t        flags    = reader.U8();
    const uint32_t       requests = 1 + reader.U8() % kMaxRequests;

    zelkfuzz::BeginInput();
    if (property_set(kAlgoParaProperty, AlgoParameters(flags).c_str()) != 0)
    {
        zelkfuzz::Fail(kTarget, "the test parameters were refused");
    }
    CDKResult result = CDKResultEFailed;
    CHIHANDLE hNode  = zelkfuzz::CreateNode(&result);
    if (hNode == nullptr)
    {
        zelkfuzz::Fail(kTarget, "the node was not created with valid parameters");
    }

    zelkfuzz::SubmitRequest(kTarget, hNode, 0, true, kStartState, nullptr);
    for (uint32_t i = 0; i < requests; i++)
    {
        const bool writeState = (reader.U8() & 7) != 7;
        std::vector<std::unique_ptr<zelkfuzz::FuzzImageList>> lists =
            zelkfuzz::ReadImageLists(reader, kMaxListsPerRequest, kMaxPlaneBytes);
        std::vector<CHINODEBUFFERHANDLE> inputs = zelkfuzz::Handles(lists);
        zelkfuzz::SubmitRequest(kTarget, hNode, 1 + i, writeState, kVerifyingState, &inputs);
    }

    zelkfuzz::DestroyNode(hNode);
    zelkfuzz::EndInput();
    return 0;
}
