/* A slow, plainly correct matcher of compiled patterns: it recurses for each choice and copies all
   captures for each try. Programs of opcodes 45 and 46 are beyond it. */
#ifndef TESTS_REGEX_REFERENCEMATCHER_H
#define TESTS_REGEX_REFERENCEMATCHER_H

#include "regex/match.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class ReferenceMatcher {
  public:
    struct Match {
        size_t start, end;
        std::map<int, std::string> groups;
        bool operator==(const Match &other) const {
            return start == other.start && end == other.end && groups == other.groups;
        }
    };

    ReferenceMatcher(const std::string &program, std::string subject, int steps = 200000)
        : code_(program.begin(), program.end()), subject_(std::move(subject)), limit_(steps) {}

    // What the program matches; nothing also when it took too many steps (see tooSlow).
    std::optional<Match> match() {
        const bool anchored = code_[0] == MATCH_ANCHOR;
        for (size_t start = 0; start <= (anchored ? 0 : subject_.size()); ++start) {
            if (code_[0] == MATCH_CHARACTER && (start == subject_.size() || !is(start, code_[1])))
                continue;
            Captures captures;
            const auto end = run(anchored ? 1 : 0, code_.size(), start, captures);
            if (tooSlow())
                return std::nullopt;
            if (end && end->at == 0 && !end->programEnded)
                return std::nullopt;
            if (end)
                return Match{start, end->at, groupsOf(captures)};
        }
        return std::nullopt;
    }

    bool tooSlow() const { return steps_ > limit_; }
    // Whether it came to an opcode 45 or 46: its result is then none.
    bool cameToSavingEnd() const { return savingEnd_; }

  private:
    struct Record {
        int start = -1, end = -1, group = -1;
    };
    struct Captures {
        std::map<int, Record> records;
        std::vector<int> open;
        int opened = 0, closed = 0;
    };
    struct End {
        size_t at;
        bool programEnded;
    };
    struct Counts {
        int min, max;
    };

    bool is(size_t at, unsigned char ch) const {
        return static_cast<unsigned char>(subject_[at]) == ch;
    }

    std::map<int, std::string> groupsOf(const Captures &captures) const {
        std::map<int, std::string> groups;
        for (const auto &[slot, record] : captures.records)
            if (record.group >= 0 && record.start >= 0 && record.start <= record.end)
                groups[record.group] =
                    subject_.substr(static_cast<size_t>(record.start),
                                    static_cast<size_t>(record.end - record.start));
        return groups;
    }

    bool holds(int kind, size_t operand, size_t at) const {
        if (at == subject_.size())
            return false;
        if (kind == MATCH_ANY)
            return true;
        if (kind == MATCH_CHARACTER)
            return code_[operand] != 0 && is(at, code_[operand]);
        bool in = false;
        const size_t end = operand + code_[operand];
        for (size_t i = operand + 1; i < end; ++i) {
            if (code_[i] == MATCH_RANGE) {
                const auto ch = static_cast<unsigned char>(subject_[at]);
                in = in || (i + 2 < end && code_[i + 1] <= ch && ch <= code_[i + 2]);
                i += 2;
            } else
                in = in || is(at, code_[i]);
        }
        return in == (kind == MATCH_IN_CLASS);
    }

    static Counts counted(int min, int max) {
        return {min, max == MATCH_NO_LIMIT ? INT32_MAX : max < min ? min : max};
    }

    std::optional<End> run(size_t pc, size_t limit, size_t at, Captures &captures) {
        if (++steps_ > limit_ || pc >= limit)
            return std::nullopt;
        const int opcode = code_[pc];
        const auto has = [&](size_t count) { return limit - pc >= count; };
        if (opcode == MATCH_END || opcode == MATCH_SUB_END)
            return End{at, opcode == MATCH_END};
        if (opcode == MATCH_SUB_END_SAVING || opcode == MATCH_SUB_END_REPLACING)
            savingEnd_ = true;
        if (opcode == MATCH_SUBJECT_END)
            return at == subject_.size() ? run(pc + 1, limit, at, captures) : std::nullopt;
        if (opcode == MATCH_SKIP || opcode == MATCH_SKIP_TOO)
            return run(pc + 2, limit, at, captures);
        if (opcode == MATCH_OPEN && has(2)) {
            const auto slot = static_cast<signed char>(code_[pc + 1]);
            const int opened = slot < 0 ? 10 + captures.opened++ : slot;
            if (slot < 0)
                captures.open.push_back(opened);
            captures.records[opened].start = static_cast<int>(at);
            return run(pc + 2, limit, at, captures);
        }
        if (opcode == MATCH_CLOSE && has(3)) {
            int slot = static_cast<signed char>(code_[pc + 1]), group = code_[pc + 2];
            if (slot < 0 && captures.open.empty())
                return run(pc + 3, limit, at, captures);
            if (slot < 0) {
                slot = captures.open.back();
                captures.open.pop_back();
                group = 10 + captures.closed++;
            }
            captures.records[slot].end = static_cast<int>(at);
            captures.records[slot].group = group;
            return run(pc + 3, limit, at, captures);
        }
        const int kind = opcode & ~3;
        if (kind == MATCH_ANY || kind == MATCH_CHARACTER || kind == MATCH_IN_CLASS ||
            kind == MATCH_NOT_IN_CLASS)
            return item(pc, limit, at, captures);
        if (kind == MATCH_GROUP_COUNTED || kind == MATCH_GROUP_ONE_OR_MORE ||
            kind == MATCH_GROUP_ZERO_OR_MORE)
            return group(pc, limit, at, captures);
        return std::nullopt;
    }

    std::optional<End> item(size_t pc, size_t limit, size_t at, Captures &captures) {
        const int kind = code_[pc] & ~3, how = code_[pc] & 3;
        size_t next = pc + 1;
        if (kind == MATCH_CHARACTER)
            next += 1;
        else if (kind != MATCH_ANY)
            next += next < limit ? code_[next] : limit;
        Counts counts = how == 0   ? Counts{1, 1}
                        : how == 1 ? Counts{0, INT32_MAX}
                                   : Counts{1, INT32_MAX};
        if (how == 3) {
            if (next + 2 > limit)
                return std::nullopt;
            counts = counted(code_[next], code_[next + 1]);
            next += 2;
        }
        if (next > limit)
            return std::nullopt;
        int taken = 0;
        while (taken < counts.max && holds(kind, pc + 1, at + static_cast<size_t>(taken)))
            ++taken;
        for (; taken >= counts.min; --taken) {
            Captures copy = captures;
            if (const auto end = run(next, limit, at + static_cast<size_t>(taken), copy)) {
                captures = copy;
                return end;
            }
        }
        return std::nullopt;
    }

    std::optional<End> group(size_t pc, size_t limit, size_t at, Captures &captures) {
        const int kind = code_[pc] & ~3;
        if (limit - pc < 2)
            return std::nullopt;
        const size_t sub = pc + 2,
                     length = static_cast<size_t>((code_[pc] & 3) << 8 | code_[pc + 1]);
        const size_t end = sub + length, next = end + (kind == MATCH_GROUP_COUNTED ? 2 : 0);
        if (next > limit)
            return std::nullopt;
        const Counts counts = kind == MATCH_GROUP_COUNTED ? counted(code_[end], code_[end + 1])
                              : kind == MATCH_GROUP_ONE_OR_MORE ? Counts{1, INT32_MAX}
                                                                : Counts{0, INT32_MAX};
        std::vector<std::pair<size_t, Captures>> reached;
        Captures now = captures;
        for (int done = 0;; ++done) {
            if (done >= counts.min)
                reached.emplace_back(at, now);
            if (done >= counts.max)
                break;
            Captures copy = now;
            const auto repetition = run(sub, end, at, copy);
            if (!repetition)
                break;
            if (repetition->programEnded) {
                captures = copy;
                return repetition;
            }
            now = copy;
            if (repetition->at == at) {
                reached.emplace_back(at, now);
                break;
            }
            at = repetition->at;
        }
        for (; !reached.empty(); reached.pop_back())
            if (const auto result = run(next, limit, reached.back().first, reached.back().second)) {
                captures = reached.back().second;
                return result;
            }
        return std::nullopt;
    }

    std::vector<unsigned char> code_;
    std::string subject_;
    int limit_;
    int steps_ = 0;
    bool savingEnd_ = false;
};

#endif
