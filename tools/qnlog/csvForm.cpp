#include "form.h"

#include "../common/jsonText.h"
#include "../common/terminal.h"
#include "facts.h"

#include "log/expandLog.h"
#include "log/logSyms.h"

namespace {

class CsvForm : public Form {
  public:
    CsvForm(Account &account, bool forTerminal) : Form(account), forTerminal_(forTerminal) {}

    void begin(std::string &table) override {
        table += "time,priority,number,symbol,class,producer,file,line,fields,text\r\n";
    }

    void showRecord(Record &record, std::string &table) override {
        const LogSymbol *symbol = logFindAbsIndex(record.number());
        const char *message = expandLog(record.text());
        if (message == nullptr)
            account_.countUnexpanded(record.number());
        std::string fields;
        appendJson(fields, namedArguments(record));
        put(table, momentText(record.time()));
        put(table, std::to_string(record.priority()));
        put(table, std::to_string(record.number()));
        put(table, symbol == nullptr ? "" : symbol->name);
        put(table, symbol == nullptr ? "" : symbol->className);
        put(table, record.producer());
        put(table, record.file());
        put(table, std::to_string(record.line()));
        put(table, fields);
        put(table, message == nullptr ? "" : message);
        table.replace(table.size() - 1, 1, "\r\n"); // the last comma
    }

  private:
    void put(std::string &table, std::string_view value) {
        std::string text;
        if (forTerminal_)
            appendWithoutControls(text, value);
        else
            appendUtf8(text, value);
        if (text.find_first_of(",\"\r\n") == std::string::npos)
            table += text;
        else
            putQuoted(table, text);
        table += ',';
    }

    static void putQuoted(std::string &table, const std::string &text) {
        table += '"';
        for (const char each : text)
            table.append(each == '"' ? 2 : 1, each);
        table += '"';
    }

    bool forTerminal_;
};

} // namespace

std::unique_ptr<Form> csvForm(Account &account, bool forTerminal) {
    return std::make_unique<CsvForm>(account, forTerminal);
}
