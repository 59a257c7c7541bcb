#include "account.h"

void Account::countOther(Record::Kind kind) {
    foreign_ += kind == Record::Kind::FOREIGN ? 1 : 0;
    cut_ += kind == Record::Kind::CUT ? 1 : 0;
}

static std::string counted(size_t count, const char *one, const char *many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Account::summary() const {
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
