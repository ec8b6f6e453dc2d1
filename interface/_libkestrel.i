/* The flat module `_libkestrel`: what SWIG reads, in order.

   Typemaps hold from their place on, so the frame comes before everything else, the extensions before the
   records they extend, and the records before the functions that take them. */
%module _libkestrel

%include "frame.i"
%include "constants.i"
%include "conveniences.i"
%include "records.i"
%include "switch_control.i"
%include "state_store.i"

/* Behind all that is published. */
%init %{
  if (PyErr_Occurred()) {
    Py_DECREF(m);
    return NULL;
  }
%}
