// SPDX-License-Identifier: GPL-2.0-only
#include "procfs.h"

#include "context.h"
#include "fault.h"
#include "heap.h"
#include "journal.h"
#include "module.h"
#include "proc_node.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <sstream>

namespace twin {
namespace {

constexpr mode_t default_file_mode = 0444;

std::mutex mutex;             // never held while a handler runs
std::vector<ProcNode*> nodes; // all, removed ones included, in the order of creation

ProcNode* node_of(proc_dir_entry* entry)
{
    return reinterpret_cast<ProcNode*>(entry);
}

ProcNode* child_of(const ProcNode* parent, const std::string& name)
{
    for (ProcNode* node : nodes)
        if (node->parent == parent && node->name == name && !node->removed)
            return node;
    return nullptr;
}

// A directory that was removed with entries in it takes them out of sight.
bool visible(const ProcNode* node)
{
    for (; node != nullptr; node = node->parent)
        if (node->removed)
            return false;
    return true;
}

std::string path_of(const ProcNode* parent, const std::string& name)
{
    std::string path = name;
    for (; parent != nullptr; parent = parent->parent)
        path.insert(0, parent->name + "/");
    return path;
}

bool is_node(const ProcNode* node)
{
    return node == nullptr || std::find(nodes.begin(), nodes.end(), node) != nodes.end();
}

proc_dir_entry* create(const char* name, mode_t mode, proc_dir_entry* parent, bool directory,
                       const char* function)
{
    might_sleep(function);
    ProcNode* const above = node_of(parent);
    std::lock_guard guard(mutex);
    if (!is_node(above))
        die(strf("%s of %s in a directory that does not exist", function, name));
    const std::string path = path_of(above, name);
    if (heap().attempt(Kind::proc, function) || child_of(above, name) != nullptr) {
        journal().add(Source::proc, strf("%s %s failed", function, path.c_str()));
        return nullptr;
    }
    journal().add(Source::proc, strf("%s %s", function, path.c_str()));
    void* const block = heap().take_silently(Kind::proc, sizeof(ProcNode), "proc entry", true);
    auto* const node = new (block) ProcNode;
    node->name = name;
    node->parent = above;
    node->mode = mode;
    node->directory = directory;
    node->owner = Module::starting();
    if (node->owner == nullptr && above != nullptr)
        node->owner = above->owner;
    nodes.push_back(node);
    return &node->entry;
}

void free_node(ProcNode* node)
{
    node->~ProcNode();
    heap().give_back(Kind::proc, node, "proc entry");
}

} // namespace

proc_dir_entry* find_proc(const std::string& path)
{
    std::lock_guard guard(mutex);
    ProcNode* node = nullptr;
    std::istringstream parts(path);
    for (std::string part; std::getline(parts, part, '/');) {
        node = child_of(node, part);
        if (node == nullptr)
            return nullptr;
    }
    return node == nullptr ? nullptr : &node->entry;
}

bool proc_exists(const std::string& path)
{
    return find_proc(path) != nullptr;
}

std::vector<std::string> proc_children(const std::string& path)
{
    const ProcNode* const parent = node_of(find_proc(path));
    std::lock_guard guard(mutex);
    std::vector<std::string> result;
    for (const ProcNode* node : nodes)
        if (node->parent == parent && visible(node))
            result.push_back(node->name);
    return result;
}

mode_t proc_mode(const std::string& path)
{
    ProcNode* const node = node_of(find_proc(path));
    if (node == nullptr)
        die("no proc entry " + path);
    return node->mode;
}

void release_proc_entries(const Module* owner, bool left_is_fault)
{
    std::lock_guard guard(mutex);
    for (ProcNode* node : nodes)
        if (node->owner == owner && visible(node) && left_is_fault)
            fault("a module left the proc entry " + path_of(node->parent, node->name));
    std::erase_if(nodes, [&](ProcNode* node) {
        if (node->owner != owner)
            return false;
        free_node(node);
        return true;
    });
}

void reset_proc()
{
    std::lock_guard guard(mutex);
    for (ProcNode* node : nodes)
        free_node(node);
    nodes.clear();
}

} // namespace twin

using namespace twin;

proc_dir_entry* proc_mkdir(const char* name, proc_dir_entry* parent)
{
    return create(name, 0555, parent, true, "proc_mkdir");
}

proc_dir_entry* create_proc_entry(const char* name, mode_t mode, proc_dir_entry* parent)
{
    return create(name, mode != 0 ? mode : default_file_mode, parent, false, "create_proc_entry");
}

void remove_proc_entry(const char* name, proc_dir_entry* parent)
{
    might_sleep("remove_proc_entry");
    ProcNode* const above = node_of(parent);
    std::lock_guard guard(mutex);
    if (!is_node(above))
        die(strf("remove_proc_entry of %s in a directory that is gone", name));
    journal().add(Source::proc, "remove_proc_entry " + path_of(above, name));
    ProcNode* const node = child_of(above, name);
    if (node == nullptr)
        return;
    // A directory stays until its module goes: the module may still name it as a parent.
    if (node->directory && node->owner != nullptr) {
        node->removed = true;
        return;
    }
    if (std::any_of(nodes.begin(), nodes.end(),
                    [&](const ProcNode* other) { return other->parent == node; })) {
        fault("remove_proc_entry of a directory with entries, owned by no module");
        return;
    }
    std::erase(nodes, node);
    free_node(node);
}
