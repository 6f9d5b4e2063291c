/* A stand-in CUDA driver: the version in CRANDLE_FAKE_CUDA_VERSION, cuInit answering
   CRANDLE_FAKE_CUDA_INIT (0 when unset), no other entry point. */
#include <stddef.h>
#include <stdlib.h>

static int EnvironmentNumber(const char* name) {
  const char* value = getenv(name);
  return value ? atoi(value) : 0;
}

int cuDriverGetVersion(int* version) {
  *version = EnvironmentNumber("CRANDLE_FAKE_CUDA_VERSION");
  return 0;
}

int cuInit(unsigned int flags) {
  (void)flags;
  return EnvironmentNumber("CRANDLE_FAKE_CUDA_INIT");
}

int cuGetErrorName(int error, const char** name) {
  *name = error == 100 ? "CUDA_ERROR_NO_DEVICE" : "CUDA_ERROR_UNKNOWN";
  return 0;
}

/* Every symbol is unknown to this driver: status CU_GET_PROC_ADDRESS_SYMBOL_NOT_FOUND. */
int cuGetProcAddress_v2(const char* symbol, void** function, int version, unsigned long long flags,
                        int* status) {
  (void)symbol;
  (void)version;
  (void)flags;
  *function = NULL;
  if (status) *status = 1;
  return 0;
}
