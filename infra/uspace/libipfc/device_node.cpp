// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/device_node.h"

#include "libipfc/refusal.h"

#include "brim/ipfc_intf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace ipfc {

namespace {

[[noreturn]] void refuse(const std::string& reason, int number)
{
    throw DeviceError(reason + ": " + ::strerror(number), number);
}

FileDescriptor open_path(const std::string& path, int flags)
{
    FileDescriptor file(::open(path.c_str(), flags | O_CLOEXEC));
    if (!file) {
        refuse("cannot open the control device " + path, errno);
    }
    return file;
}

/// A path from the user: commands must never reach a file that is no character device.
FileDescriptor open_explicit(const std::string& path, int flags)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        refuse("cannot open the control device " + path, errno);
    }
    if (!S_ISCHR(status.st_mode)) {
        throw DeviceError(path + " is not a character device", ENODEV);
    }
    return open_path(path, flags);
}

std::optional<std::string> read_text(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// A node may be left over from a load that had another major number.
bool node_belongs_to(const std::string& path, unsigned major_number)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode) &&
           major(status.st_rdev) == major_number;
}

/// Makes a node in a new directory that only the caller can enter, opens it and removes both.
FileDescriptor open_scratch_node(const std::string& scratch, dev_t number, int flags, int& error)
{
    std::string directory = scratch + "/ipfc.XXXXXX";
    if (::mkdtemp(directory.data()) == nullptr) {
        error = errno;
        return {};
    }
    const std::string node = directory + "/" + IPFC_DEVICE_NAME;
    FileDescriptor file;
    if (::mknod(node.c_str(), S_IFCHR | 0600, number) == 0) {
        file = FileDescriptor(::open(node.c_str(), flags | O_CLOEXEC));
    }
    error = errno;
    ::unlink(node.c_str());
    ::rmdir(directory.c_str());
    return file;
}

FileDescriptor open_private_node(const DevicePlaces& places, unsigned major_number, int flags)
{
    const dev_t number = makedev(major_number, places.minor_number);
    int error = ENOENT;
    for (const std::string& scratch : places.scratch) {
        // A file system mounted without devices refuses the node or its opening: try the next.
        if (FileDescriptor file = open_scratch_node(scratch, number, flags, error)) {
            return file;
        }
    }
    refuse("no " + places.node + " and no private node for major " + std::to_string(major_number),
           error);
}

} // namespace

std::optional<unsigned> registered_major(const std::string& registry_text, const std::string& name)
{
    std::istringstream lines(registry_text);
    std::string line;
    while (std::getline(lines, line)) {
        // Block devices follow and have numbers of their own.
        if (line == "Block devices:") {
            break;
        }
        std::istringstream words(line);
        unsigned number = 0;
        std::string word;
        if (words >> number >> word && word == name) {
            return number;
        }
    }
    return std::nullopt;
}

FileDescriptor open_control_device(const std::string& explicit_path, int flags,
                                   const DevicePlaces& places)
{
    if (!explicit_path.empty()) {
        return open_explicit(explicit_path, flags);
    }
    const char* from_environment = std::getenv(kDeviceVariable);
    if (from_environment != nullptr && *from_environment != '\0') {
        return open_explicit(from_environment, flags);
    }
    const std::optional<std::string> registry = read_text(places.registry);
    if (!registry) {
        return open_explicit(places.node, flags);
    }
    const std::optional<unsigned> major_number = registered_major(*registry, IPFC_DEVICE_NAME);
    if (!major_number) {
        throw DeviceError("there is no control device \"ipfc\": is the module loaded?", ENODEV);
    }
    if (node_belongs_to(places.node, *major_number)) {
        return open_path(places.node, flags);
    }
    return open_private_node(places, *major_number, flags);
}

} // namespace ipfc
