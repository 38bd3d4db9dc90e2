// SPDX-License-Identifier: GPL-2.0-only
// One entry of the proc tree.
#pragma once

#include "kapi/proc_fs.h"

#include <cstddef>
#include <string>

namespace twin {

class Module;

struct ProcNode {
    proc_dir_entry entry{}; // first: the driver's pointer is this record's
    std::string name;
    ProcNode* parent = nullptr; // null: /proc itself
    mode_t mode = 0;
    bool directory = false;
    bool removed = false;
    const Module* owner = nullptr;
    wait_queue_head_t* watchers = nullptr;
    unsigned long (*version)(void* data) = nullptr; // of the text, for those who poll
    std::size_t (*size)(void* data) = nullptr; // what the whole text needs, when the module says
};

} // namespace twin
