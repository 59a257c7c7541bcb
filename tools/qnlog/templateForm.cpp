#include "form.h"

#include "../common/report.h"
#include "../common/terminal.h"

#include "buffers/charBuffer.h"
#include "log/synLogFlds.h"

namespace {

// Neither wrapped nor coloured: its lines are for programs.
class TemplateForm : public Form {
  public:
    TemplateForm(Account &account, std::string fields, bool raw)
        : Form(account), fields_(std::move(fields)), raw_(raw) {}

    void showRecord(Record &record, std::string &text) override {
        LogMsg *msg = parseCmpLog(record.text(), 0);
        if (msg == nullptr)
            throw WorkFailed("a record could not be read: no memory");
        work_->next = work_->text;
        const char *filled = translateSynFields(work_.get(), fields_.c_str(), msg, nullptr);
        freeLogMsg(msg);
        const std::string_view line = filled == nullptr ? "" : filled;
        if (raw_)
            text += line;
        else
            appendWithoutControls(text, line);
        text += '\n';
    }

  private:
    struct FreeBuffer {
        void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
    };
    std::string fields_;
    bool raw_;
    std::unique_ptr<CharBuffer, FreeBuffer> work_{mkCharBuffer(1024)};
};

} // namespace

std::unique_ptr<Form> templateForm(Account &account, const std::string &fields, bool raw) {
    return std::make_unique<TemplateForm>(account, fields, raw);
}
