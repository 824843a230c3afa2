#!/usr/bin/env python3
"""A script run from Python, without anything to build. LIBTAMBER: where the library is, if not where the system looks."""

import ctypes
import os

tamber = ctypes.CDLL(os.environ.get("LIBTAMBER", "libKelTamber.so.0"))
OUTPUT = ctypes.CFUNCTYPE(None, ctypes.POINTER(ctypes.c_char), ctypes.c_size_t, ctypes.c_void_p)
FUNCTION = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)


class Error(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int32), ("line", ctypes.c_uint32), ("column", ctypes.c_uint32)] + [
        (name, ctypes.c_char_p) for name in ("name", "text", "detail", "file", "source_line", "procedure")] + [
        ("source_line_number", ctypes.c_uint32), ("frames", ctypes.c_uint32), ("notes", ctypes.c_uint32)]


tamber.tamber_new.restype = ctypes.c_void_p
context = ctypes.c_void_p(tamber.tamber_new())


def check(status):
    if status != 0:
        error = Error()
        tamber.tamber_get_error(context, ctypes.byref(error))
        raise RuntimeError(f"{error.file.decode()}:{error.line}: {error.name.decode()}: {error.text.decode()}")


# Python must keep what the library calls back.
@OUTPUT
def output(text, length, _user):
    print("script says:", text[:length].decode(), end="")


@FUNCTION
def upper(call, _user):
    text, length = ctypes.c_char_p(), ctypes.c_size_t()
    tamber.tamber_arg_text(ctypes.c_void_p(call), 0, ctypes.byref(text), ctypes.byref(length))
    result = text.value.upper()
    return tamber.tamber_return_text(ctypes.c_void_p(call), result, ctypes.c_size_t(len(result)))


SCRIPT = b"""
int Greet(string who)
  Print("hello, " + Upper(who) + "\\n")
  return 6 * 7
endproc
int Fail(int n)
  return 1 / n
endproc
"""

check(tamber.tamber_set_output(context, output, None))
check(tamber.tamber_register(context, b"string Upper (string Text)", upper, None))
check(tamber.tamber_compile_text(context, b"greeting", SCRIPT, ctypes.c_size_t(len(SCRIPT))))
check(tamber.tamber_push_text(context, b"python", ctypes.c_size_t(6)))
check(tamber.tamber_run(context, b"Greet"))
answer = ctypes.c_int32()
check(tamber.tamber_result_int(context, ctypes.byref(answer)))
print(answer.value)
check(tamber.tamber_push_int(context, 0))
try:
    check(tamber.tamber_run(context, b"Fail"))
except RuntimeError as error:
    print(error)
check(tamber.tamber_free(context))
print("after the end:", tamber.tamber_run(context, b"Greet"))
