/* Marks what the module exports; everything else in it is hidden. */
#pragma once

#define KESTREL_EXPORT __attribute__((visibility("default")))
