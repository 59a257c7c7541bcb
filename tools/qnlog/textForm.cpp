#include "form.h"

#include "../common/terminal.h"
#include "colours.h"

#include "buffers/charBuffer.h"
#include "log/expandLog.h"

static void appendPainted(std::string &text, std::string_view part, const char *colour) {
    if (*colour == '\0' || part.empty()) {
        text += part;
        return;
    }
    text.append("\x1B[").append(colour) += 'm';
    text.append(part).append("\x1B[0m");
}

// Each line takes its colour on and off by itself: pagers show any part of the output. The last
// line feed may be there or not.
static void appendLines(std::string &text, std::string_view lines, const char *colour) {
    if (!lines.empty() && lines.back() == '\n')
        lines.remove_suffix(1);
    for (size_t end; (end = lines.find('\n')) != std::string_view::npos && *colour != '\0';) {
        appendPainted(text, lines.substr(0, end), colour);
        text += '\n';
        lines.remove_prefix(end + 1);
    }
    appendPainted(text, lines, colour);
    text += '\n';
}

namespace {

class TextForm : public Form {
  public:
    TextForm(Account &account, const TextStyle &style) : Form(account), style_(style) {}

    void showRecord(Record &record, std::string &text) override {
        const char *colour = style_.colour ? priorityColour(record.priority()) : "";
        if (const char *expansion = expandLog(record.text())) {
            if (plain_)
                appendPlain(text, expansion);
            else
                appendLines(text, laidOut(expansion), colour);
            return;
        }
        account_.countUnexpanded(record.number());
        putMark(text, "<no expansion>");
        appendLines(text, safe(record.bytes()), colour);
    }

    void showOther(const Record &entry, std::string &text) override {
        Form::showOther(entry, text);
        if (style_.onlyRecords)
            return;
        if (entry.kind() != Record::Kind::COMMENT)
            putMark(text, entry.kind() == Record::Kind::CUT ? "<cut record>" : "<not a record>");
        text.append(safe(entry.bytes())) += '\n';
    }

  private:
    // What appendLines does where there is nothing to do with the lines.
    static void appendPlain(std::string &text, const char *expansion) {
        const size_t before = text.size();
        appendWithoutControls(text, expansion);
        if (text.size() == before || text.back() != '\n')
            text += '\n';
    }

    void putMark(std::string &text, const char *mark) const {
        appendPainted(text, mark, style_.colour ? MARK_COLOUR : "");
        text += ' ';
    }

    // What a terminal must not see spelled out.
    std::string_view safe(std::string_view text) {
        if (style_.raw)
            return text;
        safe_.clear();
        appendWithoutControls(safe_, text);
        return safe_;
    }

    // Rendered by the library's own rules, after the controls: the width is counted on what will be
    // shown.
    std::string_view laidOut(const char *expansion) {
        const std::string_view text = style_.visible ? expansion : safe(expansion);
        if (style_.width < 1 && !style_.visible)
            return text;
        work_->next = work_->text;
        if (putStrCharBuffer(work_.get(), std::string(text).c_str()) == nullptr)
            return text;
        chgExpansionCutoff(style_.width);
        setVisible(style_.visible ? 1 : 0);
        const char *rendered = postMsg(work_.get());
        chgExpansionCutoff(0);
        setVisible(0);
        return rendered == nullptr ? text : rendered;
    }

    struct FreeBuffer {
        void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
    };
    TextStyle style_;
    bool plain_ = !style_.colour && !style_.raw && !style_.visible && style_.width < 1;
    std::string safe_;
    std::unique_ptr<CharBuffer, FreeBuffer> work_{mkCharBuffer(1024)};
};

} // namespace

std::unique_ptr<Form> textForm(Account &account, const TextStyle &style) {
    return std::make_unique<TextForm>(account, style);
}
