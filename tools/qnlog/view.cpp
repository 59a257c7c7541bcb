#include "view.h"

#include "../common/terminal.h"

#include "log/expandLog.h"
#include "log/synLogFlds.h"

#include <algorithm>
#include <iterator>

constexpr uint32_t EXPAND_FLAGS = 0x100; // the plain entry points' word

// By priority, the last one for those above 4.
static const char *const PRIORITY_COLOURS[] = {"", "36", "33", "31", "1;37;41", "1;31"};
static const char *const MARK_COLOUR = "35";

static const char *colourOf(int32_t priority) {
    const size_t last = std::size(PRIORITY_COLOURS) - 1;
    return PRIORITY_COLOURS[priority < 0 ? 0 : std::min(static_cast<size_t>(priority), last)];
}

std::string View::coloured(const std::string &text, const char *colour) const {
    if (!settings_.colour || *colour == '\0' || text.empty())
        return text;
    return std::string("\x1B[") + colour + "m" + text + "\x1B[0m";
}

// Each line takes its colour on and off by itself: pagers show any part of the output.
std::string View::finished(const std::string &text, const char *colour) const {
    std::string result;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        if (end == text.size() && end == at && at > 0)
            break;
        result += coloured(text.substr(at, end - at), colour) + '\n';
        at = end + 1;
    }
    return result;
}

// Rendered by the library's own rules, after what a terminal must not see was spelled out: the
// width is counted on what will be shown.
std::string View::laidOut(const std::string &text) {
    const bool bare = settings_.raw || settings_.visible;
    const std::string safe = bare ? text : withoutControls(text);
    if (settings_.width < 1 && !settings_.visible)
        return safe;
    work_->next = work_->text;
    if (putStrCharBuffer(work_.get(), safe.c_str()) == nullptr)
        return safe;
    chgExpansionCutoff(settings_.width);
    setVisible(settings_.visible);
    const char *rendered = postMsg(work_.get());
    chgExpansionCutoff(0);
    setVisible(0);
    return rendered == nullptr ? safe : rendered;
}

std::string View::showOther(const std::string &bytes, const char *mark, size_t &count) {
    count++;
    if (settings_.onlyRecords)
        return "";
    const std::string shown = settings_.raw ? bytes : withoutControls(bytes);
    return coloured(mark, MARK_COLOUR) + " " + shown + "\n";
}

// The template's line for the record: neither wrapped nor coloured, for it is meant for programs.
std::string View::filledIn(LogMsg &msg) {
    work_->next = work_->text;
    const char *text = translateSynFields(work_.get(), settings_.fields.c_str(), &msg, nullptr);
    const std::string line = text == nullptr ? "" : text;
    return (settings_.raw ? line : withoutControls(line)) + '\n';
}

std::string View::showRecord(LogMsg &msg, std::string &text) {
    if (!settings_.selection.accepts(msg))
        return "";
    if (!settings_.fields.empty())
        return filledIn(msg);
    const char *expansion = expandLogEnhanced(text.data(), EXPAND_FLAGS, nullptr);
    if (expansion != nullptr)
        return finished(laidOut(expansion), colourOf(msg.priority));
    unexpanded_[msg.index]++;
    text.pop_back(); // the line feed
    const std::string shown = settings_.raw ? text : withoutControls(text);
    return coloured("<no expansion>", MARK_COLOUR) + " " + finished(shown, colourOf(msg.priority));
}

std::string View::show(const LogEntry &entry) {
    if (entry.bytes.find('\0') != std::string::npos)
        return showOther(entry.bytes, "<not a record>", foreign_);
    if (entry.cut)
        return showOther(entry.bytes, "<cut record>", cut_);
    // With its line feed, as a layout that shows the record expects it.
    std::string text = entry.bytes + '\n';
    LogMsg *msg = parseCmpLogEnhanced(text.data(), 0, EXPAND_FLAGS | PARSE_KEEP_COMMENTS);
    if (msg == nullptr)
        return showOther(entry.bytes, "<not a record>", foreign_);
    std::string shown;
    if (msg->index >= 0)
        shown = showRecord(*msg, text);
    else if (!settings_.onlyRecords)
        shown = (settings_.raw ? entry.bytes : withoutControls(entry.bytes)) + '\n';
    freeLogMsg(msg);
    return shown;
}

static std::string counted(size_t count, const char *one, const char *many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string View::summary() const {
    constexpr size_t NUMBERS_TOLD = 10;
    std::string text;
    const auto add = [&text](const std::string &part) {
        text += (text.empty() ? "" : "; ") + part;
    };
    size_t total = 0;
    std::string numbers;
    size_t told = 0;
    for (const auto &[number, count] : unexpanded_) {
        total += count;
        if (told++ < NUMBERS_TOLD)
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(number);
    }
    if (total > 0)
        add(counted(total, "record", "records") + " could not be expanded (number " + numbers +
            (told > NUMBERS_TOLD ? ", ...)" : ")"));
    if (cut_ > 0)
        add(counted(cut_, "record is cut", "records are cut"));
    if (foreign_ > 0)
        add(counted(foreign_, "line is no record", "lines are no records"));
    return text;
}
