// SPDX-License-Identifier: GPL-2.0-only
// Reports as the driver and the platform print them.
#pragma once

namespace ipfc_test {

inline constexpr const char* kEmptyInterface = "\n"
                                               "VSAN Interface    0 :\n"
                                               "fcid = 0x000000\n"
                                               "WW portname = 10:00:00:11:22:33:44:55\n"
                                               "WW nodename = 20:01:00:66:77:88:99:aa\n"
                                               "                  WW_PN ->      FCID\n";

/// A peer with an exchange of the interface and one of a secondary address, and one without.
inline constexpr const char* kInterface = "\n"
                                          "VSAN Interface   10 :\n"
                                          "fcid = 0x0a0b0c\n"
                                          "WW portname = 10:00:00:11:22:33:44:55\n"
                                          "WW nodename = 20:01:00:66:77:88:99:aa\n"
                                          "                  WW_PN ->      FCID\n"
                                          "21:00:00:e0:8b:01:02:03 -> 0x0a0b0d\n"
                                          "   exch with 0x0a0b0c handle = 0000001f\n"
                                          "   exch with 0x0a0b77 handle = ffffffff\n"
                                          "10:00:00:00:00:00:00:07 -> 0x0a0b0e\n";

inline constexpr const char* kStatistics = "\n"
                                           "Global IPFC statistics \n"
                                           "packets copied = 5\n"
                                           "bytes copied   = -2\n"
                                           "mapping obj allocated = 3\n"
                                           "exch obj allocated = 1\n";

inline constexpr const char* kInterVsanHeader =
    "\n             IP              PWWN           FCID     VSAN \n";

inline constexpr const char* kInterVsanHosts =
    "\n             IP              PWWN           FCID     VSAN \n"
    "       10.1.2.3 21:00:00:e0:8b:01:02:03 0x000a0b0c 0005\n"
    "255.255.255.255 10:00:00:00:00:00:00:01 0x01020304 4095\n";

inline constexpr const char* kSecondaryAddresses =
    "10 10.10.0.77 02:00:00:00:00:77 0x0a0077\n"
    "4095 2001:db8:0:0:0:0:0:1 02:00:00:00:00:78 0x0a0078\n";

} // namespace ipfc_test
