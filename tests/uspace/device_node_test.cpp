// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/device_node.h"
#include "libipfc/refusal.h"

#include "temporary_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdlib>

namespace {

using ipfc_test::TemporaryDirectory;
using ipfc_test::write_file;

// The memory devices stand in for the driver: every system has major 1, minor 3 as /dev/null.
constexpr unsigned kNullMinor = 3;
constexpr const char* kNullRegistered = "Character devices:\n  1 ipfc\n  5 tty\n";

struct DeviceNode : testing::Test {
    void SetUp() override { ::unsetenv("IPFC_DEVICE"); }
    void TearDown() override { ::unsetenv("IPFC_DEVICE"); }

    ipfc::DevicePlaces places(const std::string& registry_text, const std::string& node) const
    {
        write_file(directory.file("devices"), registry_text);
        ipfc::DevicePlaces result;
        result.node = node;
        result.registry = directory.file("devices");
        result.minor_number = kNullMinor;
        result.scratch = {scratch.path()};
        return result;
    }

    static std::string complaint(const std::string& path, const ipfc::DevicePlaces& where)
    {
        try {
            const ipfc::FileDescriptor file = ipfc::open_control_device(path, O_RDWR, where);
        } catch (const ipfc::DeviceError& error) {
            return error.what();
        }
        return "opened";
    }

    static bool is_null_device(const ipfc::FileDescriptor& file)
    {
        struct stat status {};
        return ::fstat(file.get(), &status) == 0 && S_ISCHR(status.st_mode) &&
               status.st_rdev == makedev(1, kNullMinor);
    }

    /// Whether this user may make device nodes and open them here.
    bool can_make_nodes() const
    {
        const std::string node = directory.file("probe");
        return ::mknod(node.c_str(), S_IFCHR | 0600, makedev(1, kNullMinor)) == 0 &&
               ipfc::FileDescriptor(::open(node.c_str(), O_RDWR));
    }

    TemporaryDirectory directory;
    TemporaryDirectory scratch;
};

TEST_F(DeviceNode, MajorNumberIsFoundByTheWholeName)
{
    const std::string text = "Character devices:\n  1 mem\n 10 ipfcx\n244 ipfc\n254 xipfc\n\n"
                             "Block devices:\n  7 loop\n";
    EXPECT_EQ(ipfc::registered_major(text, "ipfc"), 244u);
    EXPECT_EQ(ipfc::registered_major(text, "mem"), 1u);
    EXPECT_EQ(ipfc::registered_major(text, "ipf"), std::nullopt);
}

TEST_F(DeviceNode, BlockDeviceOfTheSameNameIsNotTaken)
{
    EXPECT_EQ(
        ipfc::registered_major("Character devices:\n  1 mem\n\nBlock devices:\n  7 ipfc\n", "ipfc"),
        std::nullopt);
}

TEST_F(DeviceNode, NodeOfTheRegisteredDriverIsOpened)
{
    const auto file = ipfc::open_control_device({}, O_RDWR, places(kNullRegistered, "/dev/null"));
    EXPECT_TRUE(is_null_device(file));
    EXPECT_TRUE(scratch.empty());
}

TEST_F(DeviceNode, DescriptorIsNotInherited)
{
    const auto file = ipfc::open_control_device({}, O_RDWR, places(kNullRegistered, "/dev/null"));
    EXPECT_EQ(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(DeviceNode, PrivateNodeIsMadeWhenTheUsualOneIsMissingAndLeavesNothingBehind)
{
    const auto where = places(kNullRegistered, directory.file("missing"));
    if (can_make_nodes()) {
        const auto file = ipfc::open_control_device({}, O_RDWR, where);
        EXPECT_TRUE(is_null_device(file));
    } else {
        EXPECT_NE(complaint({}, where).find("no private node for major 1: "), std::string::npos);
    }
    EXPECT_TRUE(scratch.empty());
}

TEST_F(DeviceNode, NodeWithAnotherMajorNumberIsNotUsed)
{
    // Major 5 stands for the last load of the driver, /dev/null for a node of the one before.
    auto where = places("Character devices:\n  5 ipfc\n", "/dev/null");
    where.scratch = {directory.file("missing")};
    EXPECT_EQ(complaint({}, where), "no /dev/null and no private node for major 5: No such file or "
                                    "directory (errno 2, ENOENT)");
}

TEST_F(DeviceNode, NextDirectoryIsTriedWhenOneTakesNoNode)
{
    auto where = places(kNullRegistered, directory.file("missing"));
    where.scratch = {directory.file("missing"), scratch.path()};
    if (can_make_nodes()) {
        EXPECT_TRUE(is_null_device(ipfc::open_control_device({}, O_RDWR, where)));
    } else {
        EXPECT_NE(complaint({}, where).find("Operation not permitted"), std::string::npos);
    }
    EXPECT_TRUE(scratch.empty());
}

TEST_F(DeviceNode, ModuleThatIsNotLoadedIsSaid)
{
    EXPECT_EQ(complaint({}, places("Character devices:\n  1 mem\n", "/dev/null")),
              "there is no control device \"ipfc\": is the module loaded? (errno 19, ENODEV)");
}

TEST_F(DeviceNode, UsualNodeIsTrustedWhereNoRegistryCanBeRead)
{
    auto where = places("", "/dev/null");
    where.registry = directory.file("missing");
    EXPECT_TRUE(is_null_device(ipfc::open_control_device({}, O_RDWR, where)));
}

TEST_F(DeviceNode, ExplicitPathGoesBeforeTheEnvironment)
{
    ::setenv("IPFC_DEVICE", directory.file("missing").c_str(), 1);
    const auto where = places("Character devices:\n", "/dev/zero");
    EXPECT_TRUE(is_null_device(ipfc::open_control_device("/dev/null", O_RDWR, where)));
}

TEST_F(DeviceNode, EnvironmentGoesBeforeTheSearch)
{
    ::setenv("IPFC_DEVICE", "/dev/null", 1);
    const auto where = places("Character devices:\n", "/dev/zero");
    EXPECT_TRUE(is_null_device(ipfc::open_control_device({}, O_RDWR, where)));
}

TEST_F(DeviceNode, EmptyEnvironmentIsNone)
{
    ::setenv("IPFC_DEVICE", "", 1);
    EXPECT_TRUE(is_null_device(
        ipfc::open_control_device({}, O_RDWR, places(kNullRegistered, "/dev/null"))));
}

TEST_F(DeviceNode, MissingPathIsNamed)
{
    const std::string path = directory.file("missing");
    EXPECT_EQ(complaint(path, {}), "cannot open the control device " + path +
                                       ": No such file or directory (errno 2, ENOENT)");
}

TEST_F(DeviceNode, FileThatIsNoCharacterDeviceIsRefused)
{
    const std::string path = directory.file("plain");
    write_file(path, "text");
    EXPECT_EQ(complaint(path, {}), path + " is not a character device (errno 19, ENODEV)");
    EXPECT_EQ(complaint(directory.path(), {}),
              directory.path().string() + " is not a character device (errno 19, ENODEV)");
}

} // namespace
