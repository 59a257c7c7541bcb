/* The pager, as git has it: PAGER, or less; none for an empty PAGER and for "cat". */
#ifndef TOOLS_COMMON_PAGER_H
#define TOOLS_COMMON_PAGER_H

/* Where standard output is a terminal: starts the pager and puts it in the terminal's place, for
   standard error too if that is one. The process then ends after the pager, also by a signal. Where
   there is no pager to be had, nothing changes. To be called once, before anything is written. */
void startPager();

#endif
