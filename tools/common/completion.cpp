#include "completion.h"

#include <algorithm>

namespace {

// Where the catalogue is, and what it defines: one name a line.
constexpr const char *SYMBOLS =
    R"(sed -n 's/^#define \([A-Za-z0-9_]*\) log[A-Za-z0-9_]*([0-9]*).*/\1/p' "$root"/head/log*.h 2>/dev/null)";
constexpr const char *CLASSES =
    R"(sed -n 's/^#define _\([A-Za-z0-9_]*\)MSG_START .*/\1/p' "$root"/head/systemLog.h 2>/dev/null)";
// Of a clipboard, the first word of the command line; not by the tool, which waits for its lock.
constexpr const char *ENTRIES = R"(sed -n 's/^\([A-Za-z_][A-Za-z0-9_]*\)=.*/\1/p' --)";
constexpr const char *TIMES = "15m 1h 1d today yesterday";

std::vector<const CLI::Option *> optionsOf(const CLI::App &app) {
    return app.get_options([](const CLI::Option *option) { return !option->get_group().empty(); });
}

bool takesValue(const CLI::Option &option) {
    return option.get_items_expected_max() > 0;
}

// "-f" and "--follow": the short one and the first of the long ones.
std::vector<std::string> namesOf(const CLI::Option &option) {
    std::vector<std::string> names;
    if (!option.get_snames().empty())
        names.push_back("-" + option.get_snames()[0]);
    if (!option.get_lnames().empty())
        names.push_back("--" + option.get_lnames()[0]);
    return names;
}

std::string joined(const std::vector<std::string> &words, const char *between) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

// The words of "a|b|c"; empty for another type.
std::string choices(std::string type) {
    if (type.find('|') == std::string::npos)
        return "";
    std::replace(type.begin(), type.end(), '|', ' ');
    return type;
}

std::vector<const CLI::App *> commandsIn(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *) { return true; });
}

std::string commandsOf(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *sub : commandsIn(app))
        names.push_back(sub->get_name());
    return joined(names, " ");
}

// The first word behind the command is an entry's name.
bool beginsWithEntry(const CLI::App &command) {
    for (const CLI::Option *option : optionsOf(command))
        if (option->get_positional())
            return option->get_type_name() == "ENTRY";
    return false;
}

// ---- bash
// ----------------------------------------------------------------------------------------

std::string bashOffer(const std::string &words) {
    return "compgen -W \"" + words + "\" -- \"$word\"";
}

// What to offer for the word at hand: a command that puts one a line.
std::string bashValues(const std::string &type) {
    if (type == "FILE")
        return "compgen -f -- \"$word\"";
    if (type == "DIR")
        return "compgen -d -- \"$word\"";
    if (type == "TIME")
        return bashOffer(TIMES);
    if (type == "SYMBOL")
        return bashOffer(std::string("$(") + SYMBOLS + ")");
    if (type == "CLASS")
        return bashOffer(std::string("$(") + CLASSES + ")");
    return choices(type).empty() ? ":" : bashOffer(choices(type));
}

std::string bashCases(const CLI::App &app) {
    std::string text;
    for (const CLI::Option *option : optionsOf(app))
        if (takesValue(*option) && !namesOf(*option).empty())
            text += "    " + joined(namesOf(*option), " | ") + ") " +
                    bashValues(option->get_type_name()) + " ;;\n";
    return text;
}

std::string bashWords(const CLI::App &app) {
    std::vector<std::string> words;
    for (const CLI::Option *option : optionsOf(app))
        for (const std::string &name : namesOf(*option))
            words.push_back(name);
    return joined(words, " ");
}

// Where the first word is a file and the second a command.
std::string bashCommands(const CLI::App &app) {
    std::string text = "        case $4:${COMP_WORDS[2]}:$word in\n        [12]:*:-*) " +
                       bashOffer(bashWords(app)) + " ;;\n        2:*) " +
                       bashOffer(commandsOf(app)) + " ;;\n";
    for (const CLI::App *sub : commandsIn(app)) {
        text += "        *:" + sub->get_name() + ":-*) " + bashOffer(bashWords(*sub)) + " ;;\n";
        if (beginsWithEntry(*sub))
            text += "        3:" + sub->get_name() + ":*) " +
                    bashOffer(std::string("$(") + ENTRIES + " \"${COMP_WORDS[1]}\" 2>/dev/null)") +
                    " ;;\n";
    }
    return text + "        *) compgen -f -- \"$word\" ;;\n        esac\n";
}

std::string bashOptionsOrFiles(const CLI::App &app) {
    return "        if [[ $word == -* ]]; then\n            " + bashOffer(bashWords(app)) +
           "\n        else\n            compgen -f -- \"$word\"\n        fi\n";
}

std::string bashValuesOf(const CLI::App &app) {
    std::string text = bashCases(app);
    for (const CLI::App *sub : commandsIn(app))
        if (const std::string cases = bashCases(*sub); text.find(cases) == std::string::npos)
            text += cases;
    return text;
}

std::string forBash(const CLI::App &app) {
    const std::string name = app.get_name();
    const std::string commands = commandsOf(app);
    return "# bash completion, by " + name + " --completion bash\n_quarnel_" + name +
           "_words() {\n    local before=$1 word=$2 root=$3\n    case $before in\n" +
           bashValuesOf(app) + "    *)\n" +
           (commands.empty() ? bashOptionsOrFiles(app) : bashCommands(app)) +
           "        ;;\n"
           "    esac\n}\n"
           "_quarnel_" +
           name + R"(() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local root=${LOGROOT:-/usr/spool/log} i
    # bash takes the "=" of --option=value for a word.
    if [[ $word == = ]]; then
        word=
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD - 1; i++)); do
        [[ ${COMP_WORDS[i]} != --log-root ]] || root=${COMP_WORDS[i + 1]}
    done
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(_quarnel_)" +
           name +
           "_words \"$before\" \"$word\" \"$root\" \"$COMP_CWORD\")\n}\ncomplete -F _quarnel_" +
           name + " " + name + "\n";
}

// ---- zsh
// -----------------------------------------------------------------------------------------

std::string zshValues(const std::string &type) {
    if (type == "FILE")
        return "_files";
    if (type == "DIR")
        return "_files -/";
    if (type == "SYMBOL")
        return "_quarnel_symbols";
    if (type == "CLASS")
        return "_quarnel_classes";
    const std::string words = type == "TIME" ? TIMES : choices(type);
    return words.empty() ? " " : "(" + words + ")";
}

// For an argument in single quotes, whose pieces end at "]" and ":".
std::string zshText(const std::string &text) {
    std::string quoted;
    for (const char each : text) {
        if (each == '\'')
            quoted += "'\\''";
        else if (each == '[' || each == ']' || each == ':' || each == '\\')
            quoted += std::string("\\") + each;
        else
            quoted += each;
    }
    return quoted;
}

std::string zshOption(const CLI::Option &option) {
    const std::vector<std::string> names = namesOf(option);
    const std::string type = option.get_type_name();
    std::string text = "'[" + zshText(option.get_description()) + "]";
    if (takesValue(option))
        text += ":" + zshText(type) + ":" + zshValues(type);
    text += "'";
    if (names.size() == 1) // which may come again
        return "'*" + names[0] + (takesValue(option) ? "=" : "") + text.substr(1);
    return "'(" + joined(names, " ") + ")'{" + joined(names, ",") + "}" + text;
}

// A function that offers the names that the command puts out.
std::string zshNames(const char *function, const char *command) {
    return std::string(function) +
           "() {\n    local root=${(Q)opt_args[--log-root]:-${LOGROOT:-/usr/spool/log}}\n"
           "    setopt localoptions nonomatch\n    compadd -- ${(f)\"$(" +
           command + ")\"}\n}\n";
}

std::string zshOptions(const CLI::App &app) {
    std::string options;
    for (const CLI::Option *option : optionsOf(app))
        if (!namesOf(*option).empty())
            options += " \\\n    " + zshOption(*option);
    return options;
}

// What a command takes, into "behind": its options, and the entries of the file before it.
std::string zshCommands(const CLI::App &app) {
    std::string text = std::string("_quarnel_entries() {\n    compadd -- ${(f)\"$(") + ENTRIES +
                       " ${(Q)words[2]} 2>/dev/null)\"}\n}\nlocal -a behind\ncase ${words[3]} in\n";
    for (const CLI::App *sub : commandsIn(app)) {
        std::string takes;
        for (const CLI::Option *option : optionsOf(*sub))
            if (takesValue(*option) && !namesOf(*option).empty())
                takes += " " + zshOption(*option);
        if (beginsWithEntry(*sub))
            takes += " '3:entry:_quarnel_entries'";
        if (!takes.empty())
            text += sub->get_name() + ") behind=(" + takes.substr(1) + ") ;;\n";
    }
    return text + "esac\n";
}

std::string forZsh(const CLI::App &app) {
    const std::string name = app.get_name();
    const std::string options = zshOptions(app);
    std::string text = "#compdef " + name + "\n# by " + name + " --completion zsh\n";
    if (options.find("_quarnel_symbols") != std::string::npos)
        text += zshNames("_quarnel_symbols", SYMBOLS) + zshNames("_quarnel_classes", CLASSES);
    const std::string commands = commandsOf(app);
    if (commands.empty())
        return text + "_arguments -S" + options + " \\\n    '*:file:_files'\n";
    return text + zshCommands(app) + "_arguments -S" + options +
           " \\\n    $behind '1:file:_files' \\\n    '2:command:(" + commands + ")'\n";
}

} // namespace

std::string completionFor(const CLI::App &app, const std::string &shell) {
    if (shell == "bash")
        return forBash(app);
    return shell == "zsh" ? forZsh(app) : "";
}
