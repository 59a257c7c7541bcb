/* A small catalogue in the scratch folder, for targets whose inputs are not its files: messages 0
   to 3 have 0 to 3 arguments, and 1 and 2 have symbols. */
#ifndef FUZZ_SUPPORT_SMALLCATALOGUE_H
#define FUZZ_SUPPORT_SMALLCATALOGUE_H

static constexpr int SMALL_CATALOGUE_MESSAGES = 4;

// Writes it and makes it the process's; the time zone becomes UTC. Later calls do nothing.
void useSmallCatalogue();

#endif
