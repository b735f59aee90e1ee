/* The generated table, and what its formulas call. */
#include "table.h"
#include <math.h>

static double quotient(double a, double b) { return floor(a / b); }
static double modulo(double a, double b) { return a - b * floor(a / b); }
static double shifted(double a, double b) { return ldexp(a, (int)b); }
static double least(double a, double b) { return a < b ? a : b; }
static double greatest(double a, double b) { return a > b ? a : b; }

#include "zori_table.h"

#define COUNT(array) ((int)(sizeof array / sizeof array[0]))
const int function_count = COUNT(functions), operation_count = COUNT(operations), constant_count = COUNT(constants),
          status_count = COUNT(statuses);
