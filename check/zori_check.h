/* The checking twin of the library, libzori-check: every call is looked at before it goes to the library.
 *
 * Link it instead of the library (-lzori-check) or preload it:
 *
 *     LD_PRELOAD=libzori-check.so.5 ./program
 *
 * What the library by contract does not test is said in one sentence on stderr, with the call as a C snippet. The call
 * then goes on, unless ZORI_CHECK=abort is set in the environment. */
#ifndef ZORI_CHECK_H
#define ZORI_CHECK_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Why the last call of this thread that gave an error failed: which argument broke which check. "" before the first. */
const char* zori_explain(void);

/* What was last complained about in this thread, and how often anything was, in all threads. */
const char* zori_check_last(void);
long zori_check_count(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
