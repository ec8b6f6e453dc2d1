/* Marks what a library of the host shows. They are built with hidden visibility: outside are seen the declared C
   functions and, of libmorrow, what the other two libraries need of the model. */
#pragma once

#define KESTREL_HOST_EXPORT __attribute__((visibility("default")))
