// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace resolverd {

/// The numbers of syslog(3).
enum class Level : int { error = 3, warning = 4, notice = 5, info = 6, debug = 7 };

/// Lines on one descriptor; used by one thread.
class Log {
public:
    enum class Form {
        plain,   ///< "ipfc-resolverd: warning: ...": for people
        journal, ///< "<4>...": the journal takes the level off and adds the name itself
    };

    explicit Log(int fd);
    Log(int fd, Form form) : fd_(fd), form_(form) {}

    void set_threshold(Level threshold) { threshold_ = threshold; }

    void error(const std::string& text) const { write(Level::error, text); }
    void warning(const std::string& text) const { write(Level::warning, text); }
    void notice(const std::string& text) const { write(Level::notice, text); }
    void info(const std::string& text) const { write(Level::info, text); }
    void debug(const std::string& text) const { write(Level::debug, text); }
    /// What was asked for is shown whatever the threshold.
    void answer(const std::string& text) const { put(Level::notice, text); }

private:
    void write(Level level, const std::string& text) const;
    void put(Level level, const std::string& text) const;

    int fd_;
    Form form_;
    Level threshold_ = Level::info;
};

/// Whether the descriptor is the stream that systemd made for the journal, which it names in
/// JOURNAL_STREAM as "device:inode".
bool leads_to_journal(int fd);

} // namespace resolverd
