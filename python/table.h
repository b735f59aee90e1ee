/* The table that tools/python_binding.py writes from the catalogue: what its columns mean. */
#ifndef ZORI_PYTHON_TABLE_H
#define ZORI_PYTHON_TABLE_H
#include <zori.h>

enum { MAX_PARAMETERS = 16, MAX_PLANES = 4, MAX_NUMBERS = 4 };

typedef union { /* an argument as C passes it; the letters are those of the signatures */
  void* p;
  int i;
  Zor8u b;
  Zor16s h;
  Zor16u H;
  Zor32u I;
  float f;
  double d;
  ZorImgSize s;
  ZorImgRect r;
  Zor16sc c;
  Zor32sc C;
  Zor32fc F;
} Slot;

typedef struct {
  double numbers[MAX_NUMBERS];
} Numbers;
typedef struct { /* what formulas look at: the arguments of the call, those of the call that made its record */
  const Numbers *values, *maker;
  int plane;
} Context;

typedef enum { NUMBER, SIZE, STEP, IMAGE, IN, OUT, MADE, RECORD, BUFFER } Role;
typedef enum { E1u, E8u, E8s, E16u, E16s, E32u, E32s, E64s, E32f, E64f, Ppointer } Element;
typedef struct {
  Element element;
  int count, channels, planes; /* numbers in an element, elements in a pixel, planes (0: interleaved) */
  int is_read, is_written, is_mask;
  int one_channel, keeps_alpha;
  int is_partly;            /* pixels of it may stay as they were */
  int is_plain, has_margin; /* covers the region; reads beyond it */
  int margin_arguments;     /* a bit an argument that the margin follows from */
  int step, bits;           /* arguments */
  short extent[6];          /* formulas of width, height, left, top, right, bottom; -1: the region's, or none */
  int dimensions[2];        /* of a small array */
} Memory;
typedef struct {
  int argument, part, formula;
} Passing;
typedef struct { /* a query of a size */
  int function;
  const Passing* passing;
  int passings, output;
} Link;
typedef enum { LENGTH, LENGTHS, SIDES, SQUARE, BITS, ROWS, ROW_LENGTH } Telling;
typedef struct { /* an array whose shape tells an argument: LENGTHS: one number a plane; BITS: a power of two, times */
  int array;
  Telling telling;
  int times;
} Count;
typedef struct {
  const char* name;
  Role role;
  char letter;
  char optional, is_zero, is_region; /* zero: unless told */
  const Memory* memory;
  const Link* size;
  int alignment;
  int image, whole; /* the image that tells a size; the size that a rectangle fills unless told otherwise */
  const double* example;
  const char* record;
  const Count* counts;
  int count;
} Parameter;
typedef enum { LESS, MORE, ATMOST, ATLEAST } Relation;
typedef struct {
  int argument, part;
  Relation relation;
  int bound;
} Condition;
typedef struct {
  int status;
  const char *argument, *words; /* empty when several may be meant */
  const Condition* conditions;
  int count;
} Blame;
typedef struct {
  const char* name;
  void (*call)(void);
  int trampoline;
  const Parameter* parameters;
  int count;
  int release;         /* function that releases what this one makes */
  int releases;        /* it is one */
  const Memory* makes; /* image memory that is its result */
  const Blame* blame;
  int blames, document;
  const char* signature;
} Function;
typedef struct {
  const char* name;
  char required, positional;
} Named;
typedef struct {
  int function;
  const signed char* map; /* named argument -> argument */
  char skips_alpha, same; /* same: source and destination are of one type and layout */
  int out;
} Candidate;
typedef struct {
  const Named* named;
  int count;
  const Candidate* candidates;
  int candidate_count;
} Signature;
typedef struct {
  const char* name;
  const Signature* signatures;
  int count, document;
  char takes_border, takes_dtype;
  const char* synopsis;
} Operation;
typedef struct {
  const char* name;
  int value;
} Constant;
typedef struct {
  int status;
  const char *name, *text;
} StatusText;

extern void (*const trampolines[])(void (*)(void), const Slot*, Slot*); /* one a signature */
extern const char returned[];                                           /* what each returns: i, p or v(oid) */
extern double (*const formulas[])(Context);
extern const Function functions[];
extern const Operation operations[];
extern const char *const documents[], *const titles[];
extern const Constant constants[];
extern const StatusText statuses[];
extern const int function_count, operation_count, constant_count, status_count;

#endif
