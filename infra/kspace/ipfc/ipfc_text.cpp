// SPDX-License-Identifier: GPL-2.0-only
// Names and addresses as messages and reports print them.

#include "ipfc.h"

wwn_text::wwn_text(wwn_t wwn)
{
    snprintf(str, sizeof str, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", wwn.str[0], wwn.str[1],
             wwn.str[2], wwn.str[3], wwn.str[4], wwn.str[5], wwn.str[6], wwn.str[7]);
}

fcid_text::fcid_text(fcid_t fcid)
{
    snprintf(str, sizeof str, "0x%02x%02x%02x", fcid.domain, fcid.area, fcid.port);
}
