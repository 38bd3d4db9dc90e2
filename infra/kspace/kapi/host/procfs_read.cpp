// SPDX-License-Identifier: GPL-2.0-only
// Reading and writing a report the way of 2.6.27: the handler fills a page, the kernel cuts the
// reader's part out of it.
#include "context.h"
#include "fault.h"
#include "proc_node.h"
#include "procfs.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace twin {
namespace {

// Offsets from here on read nothing.
constexpr loff_t offset_limit = (1l << 31) - 1;
// A handler is asked for at most a page less some slack.
constexpr long block_size = static_cast<long>(page_size) - 1024;

constexpr int e_io = 5;

std::size_t whole_pages(std::size_t bytes)
{
    return (bytes + page_size - 1) & ~(page_size - 1);
}

// Not zeroed, as the kernel's is not, and with an unmapped page behind its last byte.
class GuardedPage {
public:
    explicit GuardedPage(std::size_t room) : room_(room), mapped_(whole_pages(room))
    {
        void* const pages = mmap(nullptr, mapped_ + page_size, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            die("the test machine has no memory for a page");
        base_ = static_cast<char*>(pages);
        page_ = base_ + mapped_ - room;
        mprotect(base_ + mapped_, page_size, PROT_NONE);
        std::memset(page_, 0x5A, room);
        in_use.push_back(this);
    }
    ~GuardedPage()
    {
        std::erase(in_use, this);
        munmap(base_, mapped_ + page_size);
    }
    GuardedPage(const GuardedPage&) = delete;
    char* get() const { return page_; }
    std::size_t room() const { return room_; }

    // Of this thread.
    static thread_local std::vector<GuardedPage*> in_use;

private:
    std::size_t room_;
    std::size_t mapped_;
    char* base_;
    char* page_;
};

thread_local std::vector<GuardedPage*> GuardedPage::in_use;

std::atomic<bool> one_page_only{false};

// The page, or what the module says that the text needs, and no more: a size that is too small is
// to show.
std::size_t room_for(proc_dir_entry* entry)
{
    const ProcNode* const node = reinterpret_cast<ProcNode*>(entry);
    if (one_page_only || node->size == nullptr)
        return page_size;
    const std::size_t needed = node->size(entry->data);
    return std::max((needed + sizeof(void*) - 1) & ~(sizeof(void*) - 1), page_size);
}

// What one call of the handler contributes to a read: bytes of the page, and how far the offset
// moves.
struct Piece {
    const char* bytes;
    long length;
    long advance;
};

Piece cut(char* page, long room, char* start, long length, loff_t position, long count)
{
    if (start == nullptr) { // the whole text from the page's beginning
        if (length > room) {
            fault("a report is longer than its page");
            length = room;
        }
        length = std::min(length - position, count);
        return {page + position, length, length};
    }
    if (start < page) { // a small number: by how much the offset moves
        if (length > room) {
            fault("a report is longer than its page");
            length = room;
        }
        return {page, length, static_cast<long>(reinterpret_cast<unsigned long>(start))};
    }
    const long offset = start - page;
    if (length > room - offset) {
        fault("a report ends behind its page");
        length = room - offset;
    }
    length = std::min(length, count);
    return {start, length, length};
}

proc_dir_entry* must_find(const std::string& path)
{
    proc_dir_entry* const entry = find_proc(path);
    if (entry == nullptr)
        die("no proc entry " + path);
    return entry;
}

} // namespace

void set_one_page_reports(bool one_page)
{
    one_page_only = one_page;
}

ProcRead proc_read_at(const std::string& path, loff_t position, std::size_t count)
{
    proc_dir_entry* const entry = must_find(path);
    ProcRead read{0, {}, position};
    if (position < 0 || position > offset_limit)
        return read;
    might_sleep("read");
    auto left = std::min<long>(static_cast<long>(count), offset_limit - position);
    const GuardedPage page(room_for(entry));
    int eof = 0;
    while (left > 0 && eof == 0 && entry->read_proc != nullptr) {
        const long asked = std::min(block_size, left);
        char* start = nullptr;
        const long length = entry->read_proc(page.get(), &start, read.position,
                                             static_cast<int>(asked), &eof, entry->data);
        might_sleep("a report's handler left a lock: what follows");
        if (length < 0 && read.result == 0)
            read.result = length;
        if (length <= 0)
            break;
        const Piece piece =
            cut(page.get(), static_cast<long>(page.room()), start, length, read.position, asked);
        if (piece.length <= 0)
            break;
        read.text.append(piece.bytes, static_cast<std::size_t>(piece.length));
        read.position += piece.advance;
        read.result += piece.length;
        left -= piece.length;
    }
    return read;
}

std::string proc_read(const std::string& path, std::size_t count)
{
    std::string text;
    loff_t position = 0;
    for (;;) {
        const ProcRead read = proc_read_at(path, position, count);
        if (read.result < 0)
            die(strf("reading %s: %ld", path.c_str(), read.result));
        if (read.result == 0)
            return text;
        text += read.text;
        position = read.position;
    }
}

long proc_write(const std::string& path, const std::string& text)
{
    proc_dir_entry* const entry = must_find(path);
    if (entry->write_proc == nullptr)
        return -e_io;
    UserMemory user(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    might_sleep("write");
    return entry->write_proc(nullptr, user.chars(), text.size(), entry->data);
}

HandlerResult call_read_proc(proc_dir_entry* entry, off_t offset, int count)
{
    const GuardedPage page(room_for(entry));
    char* start = nullptr;
    HandlerResult called{0, {}, no_start, 0};
    called.result = entry->read_proc(page.get(), &start, offset, count, &called.eof, entry->data);
    called.page.assign(page.get(), page.room());
    if (start != nullptr)
        called.start = start - page.get();
    return called;
}

unsigned long proc_version(const std::string& path)
{
    const auto* const node = reinterpret_cast<ProcNode*>(must_find(path));
    if (node->version == nullptr)
        die("nobody can poll " + path);
    return node->version(node->entry.data);
}

} // namespace twin

void kapi_proc_set_size(proc_dir_entry* entry, std::size_t (*size)(void* data))
{
    reinterpret_cast<twin::ProcNode*>(entry)->size = size;
}

void kapi_proc_set_poll(proc_dir_entry* entry, wait_queue_head_t* queue,
                        unsigned long (*version)(void* data))
{
    auto* const node = reinterpret_cast<twin::ProcNode*>(entry);
    node->watchers = queue;
    node->version = version;
}

std::size_t kapi_proc_room(const char* buffer)
{
    for (const twin::GuardedPage* page : twin::GuardedPage::in_use)
        if (page->get() == buffer)
            return page->room();
    return twin::page_size;
}
