/* The constants of constants.def for C and C++. */
#pragma once

#ifndef SWIG

#ifdef __cplusplus
#define KESTREL_INT(name, value) inline constexpr long long name = value;
#define KESTREL_STR(name, text) inline constexpr char name[] = text;
#define KESTREL_ENUM_BEGIN(type) typedef enum type : int {
#define KESTREL_ENUM8_BEGIN(type) typedef enum type : unsigned char {
#else
#define KESTREL_INT(name, value) enum { name = value };
#define KESTREL_STR(name, text) static const char name[] __attribute__((unused)) = text;
#define KESTREL_ENUM_BEGIN(type) typedef enum type {
#define KESTREL_ENUM8_BEGIN(type) typedef enum __attribute__((packed)) type {
#endif
#define KESTREL_STATUS(name, value, text) enum { name = value };
#define KESTREL_ENUMERATOR(name, value) name = (int)(value),
#define KESTREL_ENUM_END(type) \
  }                            \
  type;

#include "kestrel/constants.def"

#endif
