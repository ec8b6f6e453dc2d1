#include "exception_channel.h"

jmp_buf exception_buffer;
int32_t exception_status;
PyObject *exceptionType;
const char *exceptionMsg;
