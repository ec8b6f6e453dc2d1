/* The constants and the two variables of `cvar`, in the order of constants.def. */

%include "kestrel/types.h"

%header %{
#include "runtime_options.h"
#include "kestrel/types.h"

/** The kernel module that scripts run in: none. */
static const zel_ModuleID zel_ModuleCurrentID = 0;
%}

#define KESTREL_INT(name, value) %constant long long name = value;
#define KESTREL_STR(name, text) %constant char *name = text;
#define KESTREL_STATUS(name, value, text) %constant long long name = value;
#define KESTREL_ENUM_BEGIN(type) typedef enum type {
#define KESTREL_ENUM8_BEGIN(type) typedef enum type {
#define KESTREL_ENUMERATOR(name, value) name = value,
#define KESTREL_ENUM_END(type) } type;
#define KESTREL_VARIABLE(name) KESTREL_VARIABLE_##name
#define KESTREL_VARIABLE_zel_ModuleCurrentID extern const zel_ModuleID zel_ModuleCurrentID;
#define KESTREL_VARIABLE_runtimeOptionNames extern const char *runtimeOptionNames[];


/* SWIG's own refusal to set an array without a bound, without its warning: here it is the point. */
%typemap(varin,noblock=1) char const *[] {
  %variable_fail(SWIG_AttributeError, "$type", "read-only $name");
}

%include "kestrel/constants.def"
