#include "form.h"

#include "../common/terminal.h"
#include "colours.h"
#include "facts.h"
#include "panel.h"

#include "log/log.h"
#include "log/logSyms.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>

namespace {

constexpr int ENOUGH_FOR_TWO = 120; // columns: panels side by side
constexpr int ENOUGH_FOR_THREE = 180;
constexpr int GAP = 4;          // columns between them
constexpr int NARROW = 72;      // columns: the head takes several lines
constexpr size_t MAX_ROWS = 20; // of a panel

// The largest first, the many small ones as one, whose bar would dwarf theirs.
std::vector<Count> ranked(std::vector<Count> counts, const char *others) {
    std::stable_sort(counts.begin(), counts.end(),
                     [](const Count &a, const Count &b) { return a.count > b.count; });
    if (counts.size() <= MAX_ROWS)
        return counts;
    Count rest = {grouped(counts.size() - MAX_ROWS + 1) + others, 0, "", false};
    for (size_t i = MAX_ROWS - 1; i < counts.size(); i++)
        rest.count += counts[i].count;
    counts.resize(MAX_ROWS - 1);
    counts.push_back(rest);
    return counts;
}

template<typename Map>
std::vector<Count> countsOf(const Map &map) {
    std::vector<Count> counts;
    for (const auto &[label, count] : map)
        counts.push_back({withoutControls(label), count});
    return counts;
}

Lines stacked(const std::vector<Lines> &panels) {
    Lines lines;
    for (const Lines &each : panels) {
        if (!lines.empty())
            lines.emplace_back();
        lines.insert(lines.end(), each.begin(), each.end());
    }
    return lines;
}

void put(std::string &text, const Lines &lines) {
    for (const std::string &line : lines) {
        text += line;
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
}

// Every line of a panel has the panel's width; an empty one is filled up.
Lines sideBySide(const std::vector<Lines> &panels, size_t width) {
    Lines lines;
    for (size_t at = 0; at < panels.size(); at++)
        for (size_t i = 0; i < std::max(lines.size(), panels[at].size()); i++) {
            if (i == lines.size())
                lines.emplace_back(at * (width + GAP), ' ');
            const bool blank = i >= panels[at].size() || panels[at][i].empty();
            lines[i] += (blank ? std::string(width, ' ') : panels[at][i]) + std::string(GAP, ' ');
        }
    return lines;
}

class StatisticsForm : public Form {
  public:
    StatisticsForm(Account &account, const StatisticsStyle &style) : Form(account), style_(style) {}

    void showRecord(Record &record, std::string &) override {
        first_ = records_ == 0 ? record.time() : std::min(first_, record.time());
        last_ = records_ == 0 ? record.time() : std::max(last_, record.time());
        records_++;
        priorities_[static_cast<size_t>(record.priority())]++;
        numbers_[record.number()]++;
        auto place = producers_.find(record.producer());
        if (place == producers_.end())
            place = producers_.emplace(record.producer(), 0).first;
        place->second++;
    }

    void end(std::string &text) override {
        text += grouped(records_) + (records_ == 1 ? " record" : " records");
        const char *lead = style_.width < NARROW ? "\n" : " ";
        if (records_ > 0)
            text +=
                lead + std::string("from ") + clockText(first_) + lead + "to " + clockText(last_);
        text += '\n';
        if (records_ == 0)
            return;
        text += '\n';
        put(text, arranged());
    }

  private:
    Lines arranged() const {
        StatisticsStyle style = style_;
        const int columns = style.width >= ENOUGH_FOR_THREE ? 3
                            : style.width >= ENOUGH_FOR_TWO ? 2
                                                            : 1;
        style.width = (style.width - (columns - 1) * GAP) / columns;
        const auto width = static_cast<size_t>(style.width);
        const Lines left = stacked({priorityPanel(style), classPanel(style)});
        const Lines symbols = symbolPanel(style);
        const Lines producers = producerPanel(style);
        if (columns == 3)
            return sideBySide({left, symbols, producers}, width);
        return columns == 2 ? sideBySide({left, stacked({symbols, producers})}, width)
                            : stacked({left, symbols, producers});
    }

    Lines priorityPanel(const StatisticsStyle &style) const {
        std::vector<Count> counts;
        for (size_t i = 0; i < priorities_.size(); i++) {
            const auto priority = static_cast<int32_t>(i);
            const char *mark = i < MARKED ? msgPri[i] : "";
            if (priorities_[i] > 0)
                counts.push_back(
                    {std::to_string(i) + " " + mark, priorities_[i], priorityColour(priority)});
        }
        return panelOf("priority", counts, records_, style);
    }

    Lines classPanel(const StatisticsStyle &style) const {
        std::map<std::string, uint64_t> classes;
        for (const auto &[number, count] : numbers_) {
            const LogSymbol *symbol = logFindAbsIndex(number);
            classes[symbol == nullptr ? "(none)" : symbol->className] += count;
        }
        return panelOf("class", ranked(countsOf(classes), " others"), records_, style);
    }

    Lines symbolPanel(const StatisticsStyle &style) const {
        std::map<std::string, uint64_t> symbols;
        for (const auto &[number, count] : numbers_) {
            const char *symbol = logAbsIndexToSymbol(number);
            symbols[symbol == nullptr ? "number " + std::to_string(number) : symbol] += count;
        }
        return panelOf("symbol", ranked(countsOf(symbols), " others"), records_, style);
    }

    Lines producerPanel(const StatisticsStyle &style) const {
        return panelOf("producer", ranked(countsOf(producers_), " others"), records_, style);
    }

    static constexpr size_t MARKED = 5; // priorities that have a mark
    StatisticsStyle style_;
    uint64_t records_ = 0;
    int32_t first_ = 0, last_ = 0;
    std::array<uint64_t, 10> priorities_ = {};
    std::unordered_map<int32_t, uint64_t> numbers_;
    std::map<std::string, uint64_t, std::less<>> producers_;
};

} // namespace

std::unique_ptr<Form> statisticsForm(Account &account, const StatisticsStyle &style) {
    return std::make_unique<StatisticsForm>(account, style);
}
