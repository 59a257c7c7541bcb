/* The fault library: makes the calls that libquarnelBE.so makes of libc fail, or transfer less than
   they were asked for, one by one.

   It replaces the addresses through which libquarnelBE.so reaches libc, and nobody else's: gtest,
   libc and the sanitizers go on unharmed, and the order in which libraries are preloaded does not
   matter. What it replaces passes through until a fault is armed. One thread at a time.

   Linked into a test it is ruled by the functions below. Preloaded into any other program it is
   ruled by the environment: FAULTS="calls:n:effect[:onward]", for instance "write:1:ENOSPC" or
   "read,pread:2:half:onward", arms the fault before main. */
#ifndef TESTS_FAULTS_FAULTLIB_H
#define TESTS_FAULTS_FAULTLIB_H

extern "C" {

// Effects other than an error number.
enum { FAULT_SHORT_ONE = -1, FAULT_SHORT_HALF = -2 };

/* From now on the nth call, counted from 1, of those named has the effect: an error number, which
   it fails with, or a short transfer. Onward: all that follow, too. The names stand with commas
   between them; a group stands for its calls: "memory" for the allocations and what is refused for
   want of memory alone, "transfers" for read, write and pread, "system" for these and the rest. 0;
   -1 when the library is not loaded or a name is not known. */
int faultsArm(const char *calls, int nth, int effect, int onward);

/* Ends it. Returns how often the effect was given. */
int faultsDisarm(void);

/* Of the window armed last: the call that had the effect first (null: none), and how many of those
 * named were made. */
const char *faultsGiven(void);
int faultsCounted(void);

/* Tells of each function that libquarnelBE.so takes from elsewhere, and whether faults can be given
 * to it. -1 when the library is not loaded. */
int faultsEachImport(void (*tell)(void *context, const char *name, int isFaulted), void *context);
}

#endif
