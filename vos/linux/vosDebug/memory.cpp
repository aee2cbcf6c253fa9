/* SPDX-License-Identifier: MIT */
/* Allocation with 32-bit sizes, by the C library's functions: a block may be released with vosFree() or free(). */
#include <cstdlib>

#include "vosDebug.h"

void *vosMalloc(uint32_t ulSize) { return malloc(ulSize); }

void *vosCalloc(uint32_t ulCount, uint32_t ulSize) { return calloc(ulCount, ulSize); }

void *vosRealloc(void *pBlock, uint32_t ulSize) { return realloc(pBlock, ulSize); }

void vosFree(void *pBlock) { free(pBlock); }

void *vosDmaMalloc(uint32_t ulSize, uint32_t /*ulReserved*/) { return malloc(ulSize); }

void vosDmaFree(void *pBlock) { free(pBlock); }
