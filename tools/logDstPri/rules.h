/* The rules file: which messages get another priority or destination than the catalogue gave them.
 * logDstPri(5) tells its format. */
#ifndef TOOLS_LOGDSTPRI_RULES_H
#define TOOLS_LOGDSTPRI_RULES_H

#include "log/logDstPri.h"

#include <string>
#include <vector>

/* The routing of each message, by number. */
using Routing = std::vector<LogDstPri>;

/* What the compiled catalogue says (the file "msgDstPri" of the log root). Throws WorkFailed. */
Routing readCompiledRouting(const std::string &path);

/* Applies the rules in their order, so that the last one that matches a message counts. Returns
   false, every mistake told on standard error with its line, when the file cannot be used; the
   routing is then to be dropped. */
bool applyRules(const std::string &path, Routing &routing);

#endif
