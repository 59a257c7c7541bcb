/* Turns the entries of a log into what is shown, and keeps account of what could not be. Only one
 * view may be in use: the expansion's settings and buffers are the process's. */
#ifndef TOOLS_QNLOG_VIEW_H
#define TOOLS_QNLOG_VIEW_H

#include "../common/entryReader.h"
#include "selection.h"

#include "buffers/charBuffer.h"

#include <map>
#include <memory>
#include <string>

struct ViewSettings {
    int width = 0;            // columns; 0: lines are not wrapped
    bool visible = false;     // control characters shown by the expansion itself
    bool colour = false;      // by priority
    bool raw = false;         // control characters of records as they are: never for a terminal
    bool onlyRecords = false; // other lines are counted only
    std::string fields;       // a template with synthetic fields for each record; empty: the layout
    Selection selection;
};

class View {
  public:
    explicit View(ViewSettings settings) : settings_(std::move(settings)) {}
    /* What to show for the entry, line feed included; empty for what is not selected. */
    std::string show(const LogEntry &entry);
    /* What could not be shown as it should, for the end; empty when there was nothing. */
    std::string summary() const;
    bool allExpanded() const { return unexpanded_.empty(); }

  private:
    std::string showRecord(LogMsg &msg, std::string &text);
    std::string filledIn(LogMsg &msg);
    std::string showOther(const std::string &bytes, const char *mark, size_t &count);
    std::string laidOut(const std::string &text);
    std::string coloured(const std::string &text, const char *colour) const;
    std::string finished(const std::string &text, const char *colour) const;

    struct FreeBuffer {
        void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
    };
    ViewSettings settings_;
    std::unique_ptr<CharBuffer, FreeBuffer> work_{mkCharBuffer(1024)};
    std::map<int32_t, size_t> unexpanded_; // by number
    size_t foreign_ = 0;                   // lines that are neither records nor comments
    size_t cut_ = 0;                       // records without their end
};

#endif
