// The row kernels compiled for the avx2 instruction set.
#define KAVRI_KERNEL_NS avx2
#define KAVRI_KERNEL_NAME "avx2"
#include "pixel/RowKernels.inc"
