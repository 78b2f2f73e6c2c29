// The row kernels compiled for the avx512 instruction set.
#define KAVRI_KERNEL_NS avx512
#define KAVRI_KERNEL_NAME "avx512"
#include "pixel/RowKernels.inc"
