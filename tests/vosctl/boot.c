/* SPDX-License-Identifier: MIT */
/* Makes fresh partitions, as the first process of a device does. */
#include <vos.h>

int main(void) { return vosSysConfigDataInit() == VOS_OK ? 0 : 1; }
