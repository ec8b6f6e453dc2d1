/* Expecting how an operation of the model ends. */
#pragma once

#include <gtest/gtest.h>

#include "tests/host/native/support/status_of.h"

#define EXPECT_STATUS(expected, operation) \
  EXPECT_EQ(kestrel::host::StatusOf([&] { operation; }), static_cast<int>(expected))
