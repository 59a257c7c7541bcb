#include "form.h"

#include "../common/jsonText.h"
#include "facts.h"

#include "log/expandLog.h"
#include "log/logSyms.h"

namespace {

class JsonForm : public Form {
  public:
    using Form::Form;

    void showRecord(Record &record, std::string &json) override {
        const LogSymbol *symbol = logFindAbsIndex(record.number());
        const char *message = expandLog(record.text());
        if (message == nullptr)
            account_.countUnexpanded(record.number());
        json += '{';
        put(json, "time", std::string_view(momentText(record.time())));
        put(json, "priority", record.priority());
        put(json, "number", record.number());
        put(json, "symbol", symbol == nullptr ? nullptr : symbol->name);
        put(json, "class", symbol == nullptr ? nullptr : symbol->className);
        put(json, "producer", record.producer());
        put(json, "file", record.file());
        put(json, "line", record.line());
        put(json, "fields", namedArguments(record));
        put(json, "text", message);
        json += "}\n";
    }

  private:
    static void putName(std::string &json, const char *name) {
        json.append(json.back() == '{' ? "\"" : ",\"").append(name).append("\":");
    }
    template<typename Value>
    static void put(std::string &json, const char *name, const Value &value) {
        putName(json, name);
        appendJson(json, value);
    }
    static void put(std::string &json, const char *name, int32_t number) {
        putName(json, name);
        json += std::to_string(number);
    }
};

} // namespace

std::unique_ptr<Form> jsonForm(Account &account) {
    return std::make_unique<JsonForm>(account);
}
