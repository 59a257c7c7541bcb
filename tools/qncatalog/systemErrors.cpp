#include "catalogue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

// Beyond the last error of any Linux; gaps and the rest have no name.
static constexpr int LAST_ERRNO_ASKED = 4095;

static std::string withoutPercent(std::string text) {
    for (size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2)
        text.insert(at, "%");
    return text;
}

static Message systemError(const std::string &name, int number, const std::string &description) {
    Message message;
    message.symbol = "OSERR_" + name;
    message.relative = number;
    message.priority = 2;
    message.destination = 1;
    message.text = name + " (" + withoutPercent(description) + "): %s";
    message.fields.push_back({"text", 'S', "%s", 0, 0, 0});
    return message;
}

/* The relative number of an error is its errno. Number 0 stands before the class's start: a report
   that was made with errno 0 must be readable too. */
void addSystemErrors(Catalogue &catalogue) {
    MessageClass errors;
    errors.name = "OSERR";
    errors.start = SYSTEM_ERROR_BASE + 1;
    errors.generated = true;
    errors.messages.push_back(systemError("NONE", 0, "no error number"));
    for (int number = 1; number <= LAST_ERRNO_ASKED; number++) {
        const char *name = strerrorname_np(number);
        const char *description = strerrordesc_np(number);
        if (name != nullptr && description != nullptr)
            errors.messages.push_back(systemError(name, number, description));
    }
    catalogue.classes.push_back(std::move(errors));
}
