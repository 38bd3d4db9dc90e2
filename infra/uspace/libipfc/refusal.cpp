// SPDX-License-Identifier: GPL-2.0-only
#include "libipfc/refusal.h"

#include "brim/ipfc_intf.h"

#include <array>
#include <cerrno>
#include <cstring>

namespace ipfc {

namespace {

struct Refusal {
    uint32_t command;
    int number;
    const char* reason;
};

constexpr const char* kVsanRange = "VSAN number above 4095";
constexpr const char* kVsanRangeOrMissing = "VSAN does not exist or number above 4095";
constexpr const char* kVsanMissing = "VSAN does not exist";

constexpr std::array kRefusals{
    Refusal{IPFC_IOC_CREATE_INTF, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_CREATE_INTF, ENOMEM, "no memory for a new interface"},
    Refusal{IPFC_IOC_DELETE_INTF, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_UPDATE_INTF, EINVAL, kVsanRangeOrMissing},
    Refusal{IPFC_IOC_ADD_MAPPING, EPERM, "mapping stored, but no packet waits for it"},
    Refusal{IPFC_IOC_ADD_MAPPING, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_ADD_MAPPING, ENOMEM, "no memory for a new mapping"},
    Refusal{IPFC_IOC_DEL_MAPPING, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_DEL_MAPPING, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_UPD_MAPPING, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_UPD_MAPPING, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_MAPPING_NOT_FOUND, EPERM, "no packet waits for this port name"},
    Refusal{IPFC_IOC_MAPPING_NOT_FOUND, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_GET_INTF, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_GET_INTF, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_GET_STATS, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_GET_STATS, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_CLEAR_STATS, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_CLEAR_STATS, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_SET_IP, EINVAL, kVsanRange},
    Refusal{IPFC_IOC_SET_IP, ENXIO, kVsanMissing},
    Refusal{IPFC_IOC_ADD_IVRIP, ENOMEM, "no memory for a new inter-VSAN host"},
};

/// What a number means whatever the command; null when that depends on the command.
const char* common_reason(int number)
{
    switch (number) {
    case EFAULT:
        return "the driver could not reach the command's record";
    case ENOTTY:
        return "the device does not know this command";
    default:
        return nullptr;
    }
}

} // namespace

std::string error_name(int number)
{
    const char* name = ::strerrorname_np(number);
    return name != nullptr ? name : "error " + std::to_string(number);
}

std::string reason_of_refusal(uint32_t command, int number)
{
    for (const Refusal& refusal : kRefusals) {
        if (refusal.command == command && refusal.number == number) {
            return refusal.reason;
        }
    }
    if (const char* reason = common_reason(number)) {
        return reason;
    }
    // Updates pass the FC-2 stack's own result on.
    if (command == IPFC_IOC_UPDATE_INTF) {
        return std::string("the FC-2 stack refused the N_Port: ") + ::strerror(number);
    }
    return ::strerror(number);
}

DeviceError::DeviceError(const std::string& reason, int number)
    : std::runtime_error(reason + " (errno " + std::to_string(number) + ", " + error_name(number) +
                         ")"),
      reason_(reason), number_(number)
{
}

} // namespace ipfc
