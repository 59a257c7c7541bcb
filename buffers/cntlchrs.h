/* The control characters by name, as the renderings of clearCopy.h name them: 10 is NL and 12 is NP
   (new page), after the old terminal vocabulary, and 17 is DCL. Kept: callers know them so.
   Constants only: safe everywhere. */
#ifndef QUARNEL_BUFFERS_CNTLCHRS_H
#define QUARNEL_BUFFERS_CNTLCHRS_H

enum {
    CNTL_NUL = 0x00,
    CNTL_SOH = 0x01,
    CNTL_STX = 0x02,
    CNTL_ETX = 0x03,
    CNTL_EOT = 0x04,
    CNTL_ENQ = 0x05,
    CNTL_ACK = 0x06,
    CNTL_BEL = 0x07,
    CNTL_BS = 0x08,
    CNTL_HT = 0x09,
    CNTL_NL = 0x0A,
    CNTL_VT = 0x0B,
    CNTL_NP = 0x0C,
    CNTL_CR = 0x0D,
    CNTL_SO = 0x0E,
    CNTL_SI = 0x0F,
    CNTL_DLE = 0x10,
    CNTL_DCL = 0x11,
    CNTL_DC2 = 0x12,
    CNTL_DC3 = 0x13,
    CNTL_DC4 = 0x14,
    CNTL_NAK = 0x15,
    CNTL_SYN = 0x16,
    CNTL_ETB = 0x17,
    CNTL_CAN = 0x18,
    CNTL_EM = 0x19,
    CNTL_SUB = 0x1A,
    CNTL_ESC = 0x1B,
    CNTL_FS = 0x1C,
    CNTL_GS = 0x1D,
    CNTL_RS = 0x1E,
    CNTL_US = 0x1F,
    CNTL_SP = 0x20,
    CNTL_DEL = 0x7F
};

#endif
