/* A libVeltrano.so that has one operation of the interface and lacks the rest. */
#include <Veltrano.h>

void Veltrano_LoadLite(void) {}
