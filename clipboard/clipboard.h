/* A clipboard: a small file of name=value assignments that processes share.

   A caller goes through these stages:

     Clipboard *clipboard = modifyClipboard(path);    opens the file and waits for its lock
     getClipboard(clipboard);                         loads the entries; also for a new, empty file
     findClipEntryValue(clipboard, "name");           any number of lookups and changes
     addClipEntry(clipboard, NULL, "name", "value", NULL);
     closeClipboard(clipboard);                       rewrites the file if something changed, gives
   the lock back

   From opening to closing the file is locked whole (a POSIX record lock), so read-modify-write of
   several processes is serialised. The wait has no time limit. The lock is the process's: any other
   open and close of the same file in the process drops it, and it does not keep apart two
   clipboards of one process. A process that ends early, however, leaves the file as it was, unless
   it ends during the rewriting itself, which is one write of the whole new text.

   Format: a line that is empty, blank or begins (after white space) with "#" is a comment line. Any
   other holds assignments separated by ";", with quotes, continuation lines and comments as the
   options files have them; lines that are no assignment are not kept. Rewritten, each entry stands
   on a line of its own with the comment block before it and what followed its value on the line.
   Comments of a file without any assignment are not kept.

   Kept, because the files are read by the rules of options files: some values and names do not come
   back from the file as they were, and a quote or backslash that is open in a comment or trailer
   reaches into the lines behind it. clipboard(5) lists them all.

   Every function takes a null clipboard and gives the failure value told. A Clipboard belongs to
   one thread at a time; threads with clipboards of different files do not disturb one another.
   Within a process the file's lock keeps nobody out: threads that share a file take turns by a lock
   of their own, from opening to closing. No lock of the library is held while a clipboard waits for
   its file. Nothing here is safe in a signal handler. */
#ifndef QUARNEL_CLIPBOARD_CLIPBOARD_H
#define QUARNEL_CLIPBOARD_CLIPBOARD_H

#include <stdint.h>
#include <stdio.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Clipboard {
    char *path;       /* owned copy */
    uint32_t flags;   /* CLIP_ bits */
    FILE *stream;     /* the open, locked file; null when there is none */
    uint32_t entries; /* index of the array of ClipEntry (buffers/arrays.h); 0 until loaded */
} Clipboard;

typedef struct ClipEntry {
    char *comment; /* the comment lines before the assignment, each with its newline, joined; null
                      if none */
    char *name;    /* null for the entry that carries the comment lines at the end of the file */
    char *value;   /* unquoted; may be null */
    char *trailer; /* what followed the value on its line; null if nothing */
} ClipEntry;

#define CLIP_MODIFIED 1 /* something changed: closing rewrites the file */
#define CLIP_EXPANDED                                                                              \
    2 /* values were expanded: closing never writes, so expansions cannot reach the file */

/* Opens the file, created or emptied, with its lock held; it is emptied only once the lock is held.
   A device or FIFO is not emptied. Null with errno when it cannot be opened or locked (EDEADLK:
   whoever holds it waits for a lock of this process). */
QN_API Clipboard *newClipboard(const char *path);

/* Opens the existing file with its lock held; when it does not exist or cannot be opened for
   update, one is made as newClipboard does, except that what another process has written into it
   meanwhile is kept. Null with errno as above.
 */
QN_API Clipboard *modifyClipboard(const char *path);

/* Loads the file's entries and clears the flags. Returns the index of the array of entries, which
   is the clipboard's; 0 for a null clipboard, one without stream, and when memory is exhausted or
   the file cannot be read to its end: nothing is loaded then, so that no part of a file can be
   written back for the whole. Loading again replaces the entries. */
QN_API uint32_t getClipboard(Clipboard *clipboard);

/* The first entry of that name; for a null name the first without one. Null if none. The entry is
   the clipboard's and moves when entries are added, inserted or deleted. */
QN_API ClipEntry *getClipEntry(Clipboard *clipboard, const char *name);

/* The value of the entry of that name, the clipboard's; null if none, and for a null or empty name.
 */
QN_API char *findClipEntryValue(Clipboard *clipboard, const char *name);

/* Sets the value of the entry of that name (null included), its comment and trailer where given; or
   appends a new entry. The texts are copied and may be the entry's own. 1; 0, nothing changed, for
   a null clipboard, one not loaded, a null or empty name and exhausted memory. */
QN_API int addClipEntry(Clipboard *clipboard, const char *comment, const char *name,
                        const char *value, const char *trailer);

/* Inserts a new entry before the one named, or before the first without a name. 1; 0 if name is
   null or empty, there is no such place, the name already has a value, or memory is exhausted. */
QN_API int insertClipEntry(Clipboard *clipboard, const char *before, const char *comment,
                           const char *name, const char *value, const char *trailer);

/* Removes the first entry of that name, or the first without one for null. 1 if there was one, else
 * 0. */
QN_API int deleteClipEntry(Clipboard *clipboard, const char *name);

/* Expands each value as shellVariable does. Returns how many changed, 0 when there are none, -1 for
 * a null clipboard. */
QN_API int32_t expandClipEntries(Clipboard *clipboard);

/* The flags; the other three return what they were. 0 for null. Setting or clearing CLIP_MODIFIED
   forces or suppresses the rewriting. */
QN_API uint32_t getClipboardFlags(Clipboard *clipboard);
QN_API uint32_t setClipboardFlags(Clipboard *clipboard, uint32_t flags);
QN_API uint32_t addClipboardFlags(Clipboard *clipboard, uint32_t bits);
QN_API uint32_t removeClipboardFlags(Clipboard *clipboard, uint32_t bits);

/* Rewrites the file if the flags are exactly CLIP_MODIFIED (of the two), gives the lock back and
   releases the clipboard. Returns the number of entries written; -1 when the new text could not be
   composed, or the file at the path neither reopened, locked and emptied nor made anew: it is then
   as it was, and the changes are lost. One that cannot be reopened is made anew under a temporary
   name in its folder, with its owner and permissions as far as the process may set them, and takes
   the path when it is locked; a process that dies in between leaves a file ".clip" and six more
   characters there. On a full disk the count falls short and the rest of the text is missing. 0
   for null, and, kept, for a clipboard that was never loaded: nothing is released then, the file
   stays open and locked. */
QN_API int32_t closeClipboard(Clipboard *clipboard);

/* Removes the file. 0, or -1 with errno. */
QN_API int removeClipboard(const char *path);

/* Writes the text to the stream as a value is written: between double quotes, with a backslash
   before each double quote and backslash, if it holds a blank, a tab, a line break, a form feed, a
   backspace or one of ' " ` | ^ < > ; # & [ ] { } ( ) $; else as it is. 1; 0 for a null text and
   when the stream shows an error. */
QN_API int quotePuts(const char *text, FILE *stream);

#ifdef __cplusplus
}
#endif

#endif
