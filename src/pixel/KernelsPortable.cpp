// The row kernels for any CPU: the reference every faster set is tested against.
#define KAVRI_KERNEL_NS portable
#define KAVRI_KERNEL_NAME "portable"
#include "pixel/RowKernels.inc"
