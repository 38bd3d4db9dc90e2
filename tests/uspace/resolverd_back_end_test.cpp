// SPDX-License-Identifier: GPL-2.0-only
// Both back ends over real files.
#include "resolverd_driver.h"
#include "temporary_directory.h"

#include "ipfc-resolverd/fabric_name_server.h"
#include "ipfc-resolverd/file_watch.h"
#include "ipfc-resolverd/static_table.h"
#include "ipfc-resolverd/text_file.h"

#include "libipfc/names.h"

#include <gmock/gmock.h>

#include <poll.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace resolverd {
namespace {

using ipfc_test::TemporaryDirectory;
using ipfc_test::write_file;
using resolverd_test::port;

constexpr const char* kName = "20:00:00:5e:bf:00:00:0a";

std::string found(NameServer& name_server, const Port& port)
{
    const std::optional<fcid_t> fcid = name_server.find(port);
    return fcid ? ipfc::to_text(*fcid) : "nowhere";
}

bool is_raised(const ChangeSignal& signal)
{
    pollfd file = signal.raised_when();
    return ::poll(&file, 1, 0) == 1;
}

/// The signal must be raised before it is asked what for.
bool changed(ChangeSignal& signal)
{
    return is_raised(signal) && signal.consume();
}

/// Replaces a file the way editors do.
void replace_file(const TemporaryDirectory& directory, const std::string& name,
                  const std::string& text)
{
    write_file(directory.file(name + ".new"), text);
    std::filesystem::rename(directory.file(name + ".new"), directory.file(name));
}

class FabricTest : public testing::Test {
protected:
    TemporaryDirectory directory_;
    std::string path_ = directory_.file("name_server");
    FabricNameServer name_server_{path_};
};

TEST_F(FabricTest, FindsAPortInItsVsanOnly)
{
    write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0101\n20 20:00:00:5e:bf:00:00:0b 0x140101\n");
    EXPECT_EQ(found(name_server_, port(10, kName)), "0x0a0101");
    EXPECT_EQ(found(name_server_, port(20, kName)), "nowhere");
}

TEST_F(FabricTest, FindsAPortThatHasJustLoggedIn)
{
    write_file(path_, "");
    EXPECT_EQ(found(name_server_, port(10, kName)), "nowhere");
    write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0101\n");
    EXPECT_EQ(found(name_server_, port(10, kName)), "0x0a0101");
}

TEST_F(FabricTest, FailsRatherThanToDenyWhenItCannotBeRead)
{
    EXPECT_THROW(name_server_.find(port(10, kName)), std::system_error);
    EXPECT_THROW(name_server_.read_table(), std::system_error);
    EXPECT_THROW(name_server_.watch(), std::system_error);
}

TEST_F(FabricTest, TellsOfLinesThatItDoesNotUnderstand)
{
    write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0101\nzone 7\n");
    const Reading reading = name_server_.read_table();
    EXPECT_EQ(reading.ports.size(), 1u);
    EXPECT_EQ(reading.remark, "1 line not understood");
}

TEST_F(FabricTest, IsPolledForAnUrgentChangeOfTheOpenFile)
{
    write_file(path_, "");
    const auto signal = name_server_.watch();
    EXPECT_EQ(signal->raised_when().events, POLLPRI);
    EXPECT_TRUE(signal->consume());
}

// The kernel's own file of this kind.
TEST_F(FabricTest, WatchOfAnUnchangedProcFileIsNotRaised)
{
    FabricNameServer mounts("/proc/self/mounts");
    EXPECT_FALSE(is_raised(*mounts.watch()));
}

TEST_F(FabricTest, WatchOfAPipeFailsWithoutWaitingForAWriter)
{
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    EXPECT_THROW(name_server_.watch(), std::system_error);
}

class StaticTableTest : public testing::Test {
protected:
    StaticTableTest() { write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0101\n"); }

    TemporaryDirectory directory_;
    std::string path_ = directory_.file("ports");
};

TEST_F(StaticTableTest, FindsWhatTheFileLists)
{
    StaticTable table(path_);
    EXPECT_EQ(found(table, port(10, kName)), "0x0a0101");
    EXPECT_EQ(found(table, port(11, kName)), "nowhere");
}

TEST_F(StaticTableTest, KeepsTheTableInForceUntilItIsReadAgain)
{
    StaticTable table(path_);
    write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0102\n");
    EXPECT_EQ(found(table, port(10, kName)), "0x0a0101");
    table.read_table();
    EXPECT_EQ(found(table, port(10, kName)), "0x0a0102");
}

TEST_F(StaticTableTest, RefusesAMalformedTableAndStaysWithTheOneInForce)
{
    StaticTable table(path_);
    write_file(path_, "10 20:00:00:5e:bf:00:00:0a 0x0a0102\n10 20:00 0x0a0103\n");
    try {
        table.read_table();
        FAIL() << "was taken";
    } catch (const MalformedText& error) {
        EXPECT_EQ(error.what(), path_ + ":2: port name \"20:00\": 2 bytes where there must be 8");
    }
    EXPECT_EQ(found(table, port(10, kName)), "0x0a0101");
}

TEST_F(StaticTableTest, StaysInForceWhenItsFileIsRemoved)
{
    StaticTable table(path_);
    std::filesystem::remove(path_);
    EXPECT_THROW(table.read_table(), std::system_error);
    EXPECT_EQ(found(table, port(10, kName)), "0x0a0101");
}

TEST_F(StaticTableTest, CannotStartMalformed)
{
    write_file(path_, "nonsense\n");
    EXPECT_THROW(StaticTable{path_}, MalformedText);
}

class FileWatchTest : public testing::Test {
protected:
    FileWatchTest() { write_file(path_, "old"); }

    TemporaryDirectory directory_;
    std::string path_ = directory_.file("ports");
};

TEST_F(FileWatchTest, IsNotRaisedByAFileThatStaysAsItIs)
{
    FileWatch watch(path_);
    EXPECT_FALSE(is_raised(watch));
    ipfc_test::read_file(path_);
    EXPECT_FALSE(is_raised(watch));
}

TEST_F(FileWatchTest, IsRaisedWhenTheFileIsWrittenInPlace)
{
    FileWatch watch(path_);
    write_file(path_, "new");
    EXPECT_TRUE(changed(watch));
    EXPECT_FALSE(is_raised(watch));
}

TEST_F(FileWatchTest, IsNotRaisedWhileTheFileIsStillBeingWritten)
{
    FileWatch watch(path_);
    std::ofstream file(path_);
    file << "half" << std::flush;
    EXPECT_FALSE(is_raised(watch));
    file.close();
    EXPECT_TRUE(changed(watch));
}

TEST_F(FileWatchTest, IsRaisedWhenTheFileIsReplaced)
{
    FileWatch watch(path_);
    replace_file(directory_, "ports", "new");
    EXPECT_TRUE(changed(watch));
}

TEST_F(FileWatchTest, IsRaisedWhenTheFileIsRemovedAndWhenItComesBack)
{
    FileWatch watch(path_);
    std::filesystem::remove(path_);
    EXPECT_TRUE(changed(watch));
    write_file(path_, "new");
    EXPECT_TRUE(changed(watch));
}

TEST_F(FileWatchTest, DoesNotTakeItsNeighbourForTheFile)
{
    FileWatch watch(path_);
    write_file(directory_.file("other"), "new");
    EXPECT_TRUE(is_raised(watch));
    EXPECT_FALSE(watch.consume());
}

TEST_F(FileWatchTest, FollowsASymbolicLinkToAnotherFolder)
{
    const TemporaryDirectory elsewhere;
    write_file(elsewhere.file("real"), "old");
    std::filesystem::create_symlink(elsewhere.file("real"), directory_.file("link"));
    FileWatch watch(directory_.file("link"));
    write_file(elsewhere.file("real"), "new");
    EXPECT_TRUE(changed(watch));
}

// How folders of settings are swapped as a whole.
TEST_F(FileWatchTest, NoticesThatALinkOnTheWayLeadsElsewhere)
{
    for (const char* version : {"one", "two"}) {
        std::filesystem::create_directory(directory_.file(version));
        write_file(directory_.file(std::string(version) + "/ports"), version);
    }
    const auto data = directory_.path() / "data";
    std::filesystem::create_directory_symlink("one", data);
    std::filesystem::create_symlink("data/ports", directory_.file("link"));
    FileWatch watch(directory_.file("link"));
    std::filesystem::create_directory_symlink("two", directory_.file("data.new"));
    std::filesystem::rename(directory_.file("data.new"), data);
    EXPECT_TRUE(changed(watch));
    write_file(directory_.file("two/ports"), "new");
    EXPECT_TRUE(changed(watch));
}

TEST_F(FileWatchTest, NeedsTheFoldersThatItWatches)
{
    EXPECT_THROW(FileWatch{"/nonexistent/folder/ports"}, std::system_error);
}

} // namespace
} // namespace resolverd
