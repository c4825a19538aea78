/* Character classes of every byte value (Latin-1 upper half). Decimal digits
 * carry only SC_KCTYPE_DIGIT: a hexadecimal-digit test must accept
 * SC_KCTYPE_DIGIT or SC_KCTYPE_XDIGIT. */
#ifndef SC_KCTYPE_H
#define SC_KCTYPE_H

#ifdef __cplusplus
extern "C" {
#endif

#define SC_KCTYPE_UPPER 0x01u     /* upper-case letter */
#define SC_KCTYPE_LOWER 0x02u     /* lower-case letter */
#define SC_KCTYPE_DIGIT 0x04u     /* decimal digit */
#define SC_KCTYPE_CNTRL 0x08u     /* control character */
#define SC_KCTYPE_PUNCT 0x10u     /* punctuation or symbol */
#define SC_KCTYPE_SPACE 0x20u     /* white space */
#define SC_KCTYPE_XDIGIT 0x40u    /* hexadecimal letter A-F, a-f */
#define SC_KCTYPE_HARDSPACE 0x80u /* blank and no-break space */

/* Indexed by the character code taken as an unsigned byte. */
extern const unsigned char sc_kctype[256];

#ifdef __cplusplus
}
#endif

#endif /* SC_KCTYPE_H */
