/* The entries of a clipboard file, from the shell. The locking is the library's: a change waits
   until no other process holds the file, and is one step for all of them. */
#include "../common/commandLine.h"
#include "../common/report.h"
#include "../common/terminal.h"

#include "buffers/arrays.h"
#include "clipboard/clipboard.h"
#include "options/options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

constexpr const char *USES = R"(Uses:
  qnclip /var/spool/site.clip set trunk 'span 2' --trailer ' # leased'
      change one entry, keeping every comment
  trunk=$(qnclip /var/spool/site.clip get trunk)
      use it in a script)";

struct Request {
    std::string path;
    std::string name;
    std::string before;
    std::string value;
    std::optional<std::string> comment;
    std::optional<std::string> trailer;
};

const char *orNull(const std::optional<std::string> &text) {
    return text ? text->c_str() : nullptr;
}

const char *orEmpty(const char *text) {
    return text == nullptr ? "" : text;
}

// As the file has it.
std::string quoted(const char *value) {
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    if (stream == nullptr)
        throw std::bad_alloc();
    quotePuts(value, stream);
    fclose(stream);
    std::string result(orEmpty(text), size);
    free(text);
    return result;
}

// The loaded clipboard; closing it rewrites the file if something changed.
class OpenClipboard {
  public:
    // Who only reads must not make the file.
    OpenClipboard(const std::string &path, bool mayCreate) : path_(path) {
        if (!mayCreate && access(path.c_str(), F_OK) != 0)
            throw systemFailure(path, errno);
        clipboard_ = modifyClipboard(path.c_str());
        if (clipboard_ == nullptr)
            throw systemFailure(path, errno);
        if (getClipboard(clipboard_) == 0)
            throw WorkFailed(path + ": cannot be loaded");
    }
    void close() {
        const bool isChanged = getClipboardFlags(clipboard_) == CLIP_MODIFIED;
        const int32_t expected = isChanged ? countNamed() : 0;
        Clipboard *clipboard = clipboard_;
        clipboard_ = nullptr;
        if (closeClipboard(clipboard) != expected)
            throw WorkFailed(path_ + ": could not be written whole");
    }
    ~OpenClipboard() {
        if (clipboard_ != nullptr) {
            setClipboardFlags(clipboard_, 0);
            closeClipboard(clipboard_);
        }
    }
    OpenClipboard(const OpenClipboard &) = delete;
    OpenClipboard &operator=(const OpenClipboard &) = delete;

    Clipboard *get() { return clipboard_; }
    uint32_t count() const { return arrDescPtr[clipboard_->entries].count; }
    const ClipEntry &entry(uint32_t position) const {
        return static_cast<const ClipEntry *>(arrDescPtr[clipboard_->entries].storage)[position];
    }

  private:
    int32_t countNamed() const {
        int32_t named = 0;
        for (uint32_t position = 0; position < count(); ++position)
            named += entry(position).name != nullptr ? 1 : 0;
        return named;
    }

    std::string path_;
    Clipboard *clipboard_ = nullptr;
};

int get(const Request &request) {
    OpenClipboard clipboard(request.path, false);
    const ClipEntry *entry = getClipEntry(clipboard.get(), request.name.c_str());
    if (entry == nullptr)
        throw WorkFailed(request.path + ": no entry named " + request.name);
    writeShown(std::string(orEmpty(entry->value)) + "\n");
    clipboard.close();
    return EXIT_FINE;
}

int set(const Request &request) {
    OpenClipboard clipboard(request.path, true);
    if (addClipEntry(clipboard.get(), orNull(request.comment), request.name.c_str(),
                     request.value.c_str(), orNull(request.trailer)) == 0)
        throw WorkFailed(request.path + ": cannot set " + request.name);
    clipboard.close();
    return EXIT_FINE;
}

int insert(const Request &request) {
    OpenClipboard clipboard(request.path, false);
    if (getClipEntry(clipboard.get(), request.before.c_str()) == nullptr)
        throw WorkFailed(request.path + ": no entry named " + request.before);
    if (insertClipEntry(clipboard.get(), request.before.c_str(), orNull(request.comment),
                        request.name.c_str(), request.value.c_str(), orNull(request.trailer)) == 0)
        throw WorkFailed(request.path + ": " + request.name + " has a value already");
    clipboard.close();
    return EXIT_FINE;
}

int remove(const Request &request) {
    OpenClipboard clipboard(request.path, false);
    if (deleteClipEntry(clipboard.get(), request.name.c_str()) == 0)
        throw WorkFailed(request.path + ": no entry named " + request.name);
    clipboard.close();
    return EXIT_FINE;
}

void listEntries(OpenClipboard &clipboard) {
    for (uint32_t position = 0; position < clipboard.count(); ++position) {
        const ClipEntry &entry = clipboard.entry(position);
        if (entry.name == nullptr)
            continue;
        writeShown(std::string(entry.name) + "=" + quoted(orEmpty(entry.value)) + "\n");
    }
}

int list(const Request &request) {
    OpenClipboard clipboard(request.path, false);
    listEntries(clipboard);
    clipboard.close();
    return EXIT_FINE;
}

int expand(const Request &request) {
    OpenClipboard clipboard(request.path, false);
    expandClipEntries(clipboard.get());
    listEntries(clipboard);
    clipboard.close();
    return EXIT_FINE;
}

// What the file could not be read back with is refused before anything is opened.
std::string checkName(const std::string &name) {
    char *parsedName, *value;
    const std::string statement = name + "=x";
    const bool isName =
        parseXeqY(0, 0, statement.c_str(), &parsedName, &value, nullptr) != 0 && name == parsedName;
    return isName ? "" : "a name is a letter or _ followed by letters, digits and _";
}

std::string checkTrailer(const std::string &trailer) {
    const size_t first = trailer.find_first_not_of(" \t");
    const bool isComment = first == std::string::npos || (trailer[first] == '#' && first > 0);
    return isComment && trailer.find('\n') == std::string::npos
               ? ""
               : "a trailer is a blank and a # comment";
}

std::string checkComment(const std::string &comment) {
    size_t start = 0;
    while (start < comment.size()) {
        const size_t end = comment.find('\n', start);
        const size_t first = comment.find_first_not_of(" \t", start);
        if (end == std::string::npos || (first < end && comment[first] != '#'))
            return "a comment is whole lines that are empty or begin with #";
        start = end + 1;
    }
    return "";
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Reads and changes the entries of a clipboard file.");
    describeTool(app, "qnclip", USES);
    Request request;
    int (*work)(const Request &) = nullptr;
    app.add_option("file", request.path, "The clipboard file")->required()->type_name("FILE");
    const auto command = [&](const char *name, const char *help, int (*function)(const Request &)) {
        CLI::App *sub = app.add_subcommand(name, help);
        sub->callback([&work, function] { work = function; });
        return sub;
    };
    const auto nameOf = [&](CLI::App *sub) {
        sub->add_option("name", request.name, "The entry")
            ->required()
            ->type_name("ENTRY")
            ->check(CLI::Validator(checkName, ""));
    };
    const auto valueOf = [&](CLI::App *sub) {
        sub->add_option("value", request.value, "Its value")->required();
        sub->add_option("--comment", request.comment, "Whole lines to stand before it")
            ->check(CLI::Validator(checkComment, ""));
        sub->add_option("--trailer", request.trailer, "What follows it on its line")
            ->check(CLI::Validator(checkTrailer, ""));
    };
    nameOf(command("get", "Print the entry's value", get));
    CLI::App *setter = command("set", "Set the entry's value, or add the entry", set);
    nameOf(setter);
    valueOf(setter);
    CLI::App *inserter = command("insert", "Insert a new entry before another", insert);
    inserter->add_option("before", request.before, "The entry to stand behind the new one")
        ->required()
        ->type_name("ENTRY");
    nameOf(inserter);
    valueOf(inserter);
    nameOf(command("delete", "Remove the entry", remove));
    command("list", "Print every entry, quoted as in the file", list);
    command("expand", "The same, with variables, ~ and `commands` expanded", expand);
    app.require_subcommand(1);
    return runTool(app, argc, argv, [&] { return work(request); });
}
