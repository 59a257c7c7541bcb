/* QN_API marks what the library exports; everything else in it is hidden. */
#ifndef QUARNEL_CORE_EXPORT_H
#define QUARNEL_CORE_EXPORT_H

#define QN_API __attribute__((visibility("default")))

#endif
