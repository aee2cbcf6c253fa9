/* SPDX-License-Identifier: MIT */
/**
 * @file vosFile.h
 * Checksums, whole-file operations and the stores on flash.
 */
#ifndef VOS_FILE_H
#define VOS_FILE_H

#include "vosTypes.h"

#endif
