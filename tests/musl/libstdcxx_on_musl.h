// SPDX-License-Identifier: Apache-2.0
// musl-g++.sh includes this before everything else. The headers of libstdc++ were configured for
// glibc; the macros here adapt them to musl, as the configuration of a musl toolchain does. Nothing
// of this affects the objects: the library calls no code of the C++ runtime.
#pragma once

// There is no version of glibc.
#define __GLIBC_PREREQ(major, minor) 0
#include <bits/c++config.h>

// Waits on a clock of the caller's choice are newer than POSIX and missing in musl.
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK

// Private names of glibc that the locale classes use.
#define __locale_t locale_t
#define _ISupper 0x001
#define _ISlower 0x002
#define _ISalpha 0x004
#define _ISdigit 0x008
#define _ISxdigit 0x010
#define _ISspace 0x020
#define _ISprint 0x040
#define _ISpunct 0x080
#define _IScntrl 0x100
#define _ISblank 0x200
