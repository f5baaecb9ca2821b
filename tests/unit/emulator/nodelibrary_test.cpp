// Node library loading through ChiNodeEntry, and the errors for libraries that cannot serve.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <fstream>

#include "chihost/emulator/nodelibrary.h"
#include "fakenode.h"

using chihost::NodeLibrary;

namespace
{

bool IsMapped(const char* pPath)
{
    void* handle = dlopen(pPath, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
    {
        dlclose(handle);
    }
    return handle != nullptr;
}

TEST(NodeLibraryTest, LoadsTheTableTheEntryFilled)
{
    NodeLibrary library;
    ASSERT_TRUE(library.Load(FAKE_NODE_PATH).IsOk());
    const CHINODECALLBACKS& callbacks = library.Callbacks();
    EXPECT_NE(nullptr, callbacks.pCreate);
    EXPECT_NE(nullptr, callbacks.pDestroy);
    EXPECT_NE(nullptr, callbacks.pProcessRequest);
    EXPECT_NE(nullptr, callbacks.pChiNodeSetNodeInterface);
    EXPECT_EQ(nullptr, callbacks.pGetCapabilities);
    EXPECT_EQ(nullptr, callbacks.pReserved37);

    auto observe =
        reinterpret_cast<PFNFAKENODEOBSERVE>(dlsym(library.Handle(), FAKE_NODE_OBSERVE_SYMBOL));
    ASSERT_NE(nullptr, observe);
    EXPECT_EQ(312u, observe()->entryTableSize);
    EXPECT_TRUE(IsMapped(FAKE_NODE_PATH));

    EXPECT_FALSE(library.Load(FAKE_NODE_PATH)); // one library per loader
    library.Unload();
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_FALSE(IsMapped(FAKE_NODE_PATH));
}

TEST(NodeLibraryTest, LibrariesThatCannotServeAreRefused)
{
    std::string notElf = testing::TempDir() + "not-a-library.so";
    std::ofstream(notElf) << "plain text";
    struct Case
    {
        std::string path;
        const char* pMessagePart;
    };
    const Case cases[] = {
        {"/nonexistent/libnode.so", "not found: /nonexistent/libnode.so"},
        {"", "not found"},
        {notElf, "cannot load"},
        {FAKE_NODE_NOENTRY_PATH, "does not export ChiNodeEntry"},
        {FAKE_NODE_EMPTY_PATH, "left the callback table empty"},
    };
    for (const Case& c : cases)
    {
        NodeLibrary     library;
        chihost::Status status = library.Load(c.path);
        ASSERT_FALSE(status) << c.path;
        EXPECT_NE(std::string::npos, status.Message().find(c.pMessagePart)) << status.Message();
        EXPECT_FALSE(library.IsLoaded());
    }
    // A refused library is not left mapped.
    EXPECT_FALSE(IsMapped(FAKE_NODE_NOENTRY_PATH));
    EXPECT_FALSE(IsMapped(FAKE_NODE_EMPTY_PATH));
}

} // namespace
