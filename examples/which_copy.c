/* which_copy [library.so]: which copy of the library this program has got, its own one or that of the name given, and
   whether it is the one for 32-byte vectors.

     cc which_copy.c $(pkg-config --cflags --libs zori) -ldl -o which_copy
     ./which_copy                                         # the loader's choice
     ./which_copy libzoriq7-5.3.so.5                      # the same, by name
     LD_PRELOAD=/usr/local/lib/libzoriq7-5.3.so.5 ./which_copy    # a file by its path */
#define _GNU_SOURCE
#include <zori.h>

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

int main(int count, char** values)
{
  /* without a name: where the function that the program calls lies */
  void* library = dlopen(count > 1 ? values[1] : NULL, RTLD_NOW);
  void* function = library ? dlsym(library, "zoriGetLibVersion") : NULL;
  Dl_info found;
  if (!function) {
    fprintf(stderr, "which_copy: %s\n", dlerror());
    return 1;
  }
  if (!dladdr(function, &found)) return 1;
  printf("%s %s\n", strstr(found.dli_fname, "/glibc-hwcaps/") ? "wide" : "base", found.dli_fname);
  return zoriGetLibVersion() ? 0 : 1;
}
