// Copyright Marvolith contributors.
// What a plug-in module exports to the host: the version it was built for and the signatures of
// its seven exports.
#pragma once

#include "host/registry/class_desc.h"

inline constexpr ULONG MAX_RELEASE = 26000;
inline constexpr ULONG MAX_API_NUM = 64;
inline constexpr ULONG MAX_SDK_REV = 0;
inline constexpr ULONG VERSION_3DSMAX = (MAX_RELEASE << 16) | (MAX_API_NUM << 8) | MAX_SDK_REV;

// The exports of a plug-in module, looked up by these exact names with C linkage.
using LibDescriptionProc = const char* (*)();
using LibNumberClassesProc = int (*)();
using LibClassDescProc = ClassDesc2* (*)(unsigned int i);
using LibVersionProc = ULONG (*)();
using CanAutoDeferProc = ULONG (*)();
using LibInitializeProc = int (*)();
using LibShutdownProc = int (*)();
