/* SPDX-License-Identifier: MIT OR GPL-2.0 */
/*
 * Flash in memory that records what is written to it. A program maps
 * /dev/recordingflash: the bytes of the chips, one chip behind the other, and
 * behind them the record. The program may change both.
 */
#ifndef RECORDINGFLASH_H
#define RECORDINGFLASH_H

#include <linux/types.h>

#define RECORDINGFLASH_CHIPS 2
#define RECORDINGFLASH_NAMES                                                   \
	{                                                                      \
		"recording-flash", "recording-app"                             \
	}
#define RECORDINGFLASH_BLOCK  (32 << 10) /* is erased at once */
#define RECORDINGFLASH_BLOCKS 8		 /* of one chip */
#define RECORDINGFLASH_CHIP   (RECORDINGFLASH_BLOCK * RECORDINGFLASH_BLOCKS)
#define RECORDINGFLASH_STEPS  (128 << 10) /* the longest record */
#define RECORDINGFLASH_ERASED 1u	  /* a bit of `at` */

/* One word written, or one block erased: `at` is then the block's first byte,
 * with the bit RECORDINGFLASH_ERASED. A word is written by clearing those bits
 * that are 0 in `value`. */
struct recordingflash_step {
	__u32 at; /* from the first byte of the first chip */
	__u32 value;
};

struct recordingflash_record {
	__u32 count; /* of all steps, also of those that did not fit */
	__u32 unused;
	struct recordingflash_step steps[RECORDINGFLASH_STEPS];
};

#define RECORDINGFLASH_MAP                                                     \
	(RECORDINGFLASH_CHIPS * RECORDINGFLASH_CHIP +                          \
	 sizeof(struct recordingflash_record))

#endif
