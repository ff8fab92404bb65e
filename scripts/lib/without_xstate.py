#!/usr/bin/env python3
"""Runs a command for which the ptrace requests for extended processor state (NT_X86_XSTATE) fail.

User-mode Linux restores the state of its processes with such a request, in a buffer that is too small
for processors with AMX: its first process then ends with a segmentation fault. Without the request it
uses PTRACE_SETFPREGS, which excludes the AVX registers.

usage: without_xstate.py COMMAND [ARGUMENT...]
"""

import ctypes
import errno
import os
import struct
import sys

SYS_PTRACE = 101  # x86-64
PTRACE_GETREGSET, PTRACE_SETREGSET, NT_X86_XSTATE = 0x4204, 0x4205, 0x202
PR_SET_SECCOMP, PR_SET_NO_NEW_PRIVS, SECCOMP_MODE_FILTER = 22, 38, 2
SECCOMP_RET_ALLOW, SECCOMP_RET_ERRNO = 0x7FFF0000, 0x00050000
BPF_LOAD, BPF_JUMP_IF_EQUAL, BPF_RETURN = 0x20, 0x15, 0x06
OFFSET_OF_NUMBER, OFFSET_OF_REQUEST, OFFSET_OF_ADDRESS = 0, 16, 32  # in struct seccomp_data


def instruction(code, value, if_equal=0, if_not=0):
    return struct.pack("HBBI", code, if_equal, if_not, value)


FILTER = b"".join([
    instruction(BPF_LOAD, OFFSET_OF_NUMBER),
    instruction(BPF_JUMP_IF_EQUAL, SYS_PTRACE, if_not=6),
    instruction(BPF_LOAD, OFFSET_OF_REQUEST),
    instruction(BPF_JUMP_IF_EQUAL, PTRACE_GETREGSET, if_equal=1),
    instruction(BPF_JUMP_IF_EQUAL, PTRACE_SETREGSET, if_not=3),
    instruction(BPF_LOAD, OFFSET_OF_ADDRESS),
    instruction(BPF_JUMP_IF_EQUAL, NT_X86_XSTATE, if_not=1),
    instruction(BPF_RETURN, SECCOMP_RET_ERRNO | errno.ENODEV),
    instruction(BPF_RETURN, SECCOMP_RET_ALLOW),
])


class FilterProgram(ctypes.Structure):
    _fields_ = [("length", ctypes.c_ushort), ("instructions", ctypes.c_char_p)]


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: without_xstate.py COMMAND [ARGUMENT...]")
    program = FilterProgram(len(FILTER) // 8, FILTER)
    libc = ctypes.CDLL(None, use_errno=True)
    if (libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 or
            libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.byref(program), 0, 0) != 0):
        sys.exit(f"without_xstate.py: {os.strerror(ctypes.get_errno())}")
    os.execvp(sys.argv[1], sys.argv[1:])


if __name__ == "__main__":
    main()
