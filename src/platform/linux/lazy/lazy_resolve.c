/* First-call resolution for the lazy-loading stubs (see generate_stubs.sh):
   loads the stub's library on first use, looks up the function and stores
   its address in the stub's slot, so that the next call jumps straight to
   it. A library that cannot be loaded ends the program with a message that
   names it: the command needed it and cannot go on without it. */
#include <dlfcn.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

extern const char* const lumeo_lazy_sonames[];
extern const size_t lumeo_lazy_library_count;
extern const char* const lumeo_lazy_names[];
extern const unsigned char lumeo_lazy_library_of[];
extern void* lumeo_lazy_slots[];

__attribute__((visibility("hidden"))) void* lumeo_lazy_resolve(size_t slot);

static pthread_mutex_t lazy_mutex = PTHREAD_MUTEX_INITIALIZER;
static void* lazy_handles[64];

void* lumeo_lazy_resolve(size_t slot) {
  const unsigned library = lumeo_lazy_library_of[slot];
  pthread_mutex_lock(&lazy_mutex);
  void* handle = lazy_handles[library];
  if (!handle) {
    /* Global, so that libraries loaded later (and each other) find its
       symbols as if it had been linked. */
    handle = dlopen(lumeo_lazy_sonames[library], RTLD_NOW | RTLD_GLOBAL);
    if (!handle) {
      fprintf(stderr, "lumeo: cannot load %s, which this command needs: %s\n", lumeo_lazy_sonames[library],
              dlerror());
      exit(70);
    }
    lazy_handles[library] = handle;
  }
  void* function = dlsym(handle, lumeo_lazy_names[slot]);
  if (!function) {
    fprintf(stderr, "lumeo: %s has no function %s\n", lumeo_lazy_sonames[library], lumeo_lazy_names[slot]);
    exit(70);
  }
  __atomic_store_n(&lumeo_lazy_slots[slot], function, __ATOMIC_RELEASE);
  pthread_mutex_unlock(&lazy_mutex);
  return function;
}
