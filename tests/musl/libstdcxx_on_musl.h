// SPDX-License-Identifier: Apache-2.0
// Included before everything else by musl-g++.sh. The headers of libstdc++ were configured for
// glibc; here they learn what musl has instead, which a toolchain made for musl knows by itself.
// Nothing of this reaches the objects: the library calls no code of the C++ runtime.
#pragma once

// Which glibc: none.
#define __GLIBC_PREREQ(major, minor) 0
#include <bits/c++config.h>

// Waits on a clock of choice, which are newer than POSIX's and not in musl.
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK

// glibc's private names, in the classes for locales.
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
