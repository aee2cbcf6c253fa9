// SPDX-License-Identifier: MIT OR GPL-2.0
/*
 * NOR flash in memory, for file systems, that records each word written and
 * each block erased in order. So a program can build the flash as it was after
 * any of these steps. As on real NOR flash a write can only clear bits.
 */
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mtd/mtd.h>
#include <linux/spinlock.h>
#include <linux/vmalloc.h>

#include "recordingflash.h"

static const char *const names[RECORDINGFLASH_CHIPS] = RECORDINGFLASH_NAMES;
static struct mtd_info chips[RECORDINGFLASH_CHIPS];
static u8 *memory;
static struct recordingflash_record *record;
static DEFINE_SPINLOCK(record_lock);

static u32 offset_of(const struct mtd_info *mtd, loff_t at)
{
	return (u32)((mtd - chips) * RECORDINGFLASH_CHIP + at);
}

static void note(u32 at, u32 value)
{
	if (record->count < RECORDINGFLASH_STEPS) {
		record->steps[record->count].at = at;
		record->steps[record->count].value = value;
	}
	record->count++;
}

static int erase(struct mtd_info *mtd, struct erase_info *what)
{
	const u32 at = offset_of(mtd, what->addr);
	u32 done;

	if (what->addr % mtd->erasesize || what->len % mtd->erasesize)
		return -EINVAL;
	spin_lock(&record_lock);
	for (done = 0; done < what->len; done += mtd->erasesize)
		note((at + done) | RECORDINGFLASH_ERASED, 0);
	memset(memory + at, 0xFF, what->len);
	spin_unlock(&record_lock);
	return 0;
}

static int read(struct mtd_info *mtd, loff_t from, size_t length, size_t *done,
		u_char *to)
{
	memcpy(to, memory + offset_of(mtd, from), length);
	*done = length;
	return 0;
}

/* The chip programs whole words: what is missing of the first and of the last
 * one is padded with 0xFF, which changes nothing. */
static int write(struct mtd_info *mtd, loff_t to, size_t length, size_t *done,
		 const u_char *from)
{
	const u32 at = offset_of(mtd, to);
	u32 word, i;

	spin_lock(&record_lock);
	for (word = at & ~3u; word < at + length; word += 4) {
		u8 bytes[4] = {0xFF, 0xFF, 0xFF, 0xFF};
		u32 value;

		for (i = 0; i < 4; i++)
			if (word + i >= at && word + i < at + length)
				bytes[i] = from[word + i - at];
		memcpy(&value, bytes, sizeof(value));
		*(u32 *)(memory + word) &= value;
		note(word, value);
	}
	spin_unlock(&record_lock);
	*done = length;
	return 0;
}

/* The board's flash can be read in place, too. */
static int point(struct mtd_info *mtd, loff_t from, size_t length, size_t *done,
		 void **where, resource_size_t *physical)
{
	*where = memory + offset_of(mtd, from);
	*done = length;
	return 0;
}

static int unpoint(struct mtd_info *mtd, loff_t from, size_t length)
{
	return 0;
}

static int map(struct file *file, struct vm_area_struct *area)
{
	return remap_vmalloc_range(area, memory, 0);
}

static const struct file_operations operations = {
    .owner = THIS_MODULE,
    .mmap = map,
};

static struct miscdevice device = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "recordingflash",
    .fops = &operations,
};

static int add_chip(u32 number)
{
	struct mtd_info *mtd = &chips[number];

	mtd->name = names[number];
	mtd->type = MTD_NORFLASH;
	mtd->flags = MTD_CAP_NORFLASH;
	mtd->size = RECORDINGFLASH_CHIP;
	mtd->erasesize = RECORDINGFLASH_BLOCK;
	mtd->writesize = 1;
	mtd->writebufsize = 64;
	mtd->owner = THIS_MODULE;
	mtd->_erase = erase;
	mtd->_read = read;
	mtd->_write = write;
	mtd->_point = point;
	mtd->_unpoint = unpoint;
	return mtd_device_register(mtd, NULL, 0);
}

static void remove_chips(u32 count)
{
	while (count-- > 0)
		mtd_device_unregister(&chips[count]);
}

static int add_chips(void)
{
	u32 number;
	int error;

	for (number = 0; number < RECORDINGFLASH_CHIPS; number++) {
		error = add_chip(number);
		if (error) {
			remove_chips(number);
			return error;
		}
	}
	return 0;
}

static int __init recordingflash_init(void)
{
	const u32 bytes = RECORDINGFLASH_CHIPS * RECORDINGFLASH_CHIP;
	int error;

	memory = vmalloc_user(RECORDINGFLASH_MAP);
	if (!memory)
		return -ENOMEM;
	memset(memory, 0xFF, bytes);
	record = (struct recordingflash_record *)(memory + bytes);
	error = add_chips();
	if (!error) {
		error = misc_register(&device);
		if (error)
			remove_chips(RECORDINGFLASH_CHIPS);
	}
	if (error)
		vfree(memory);
	return error;
}

static void __exit recordingflash_exit(void)
{
	misc_deregister(&device);
	remove_chips(RECORDINGFLASH_CHIPS);
	vfree(memory);
}

module_init(recordingflash_init);
module_exit(recordingflash_exit);
MODULE_DESCRIPTION("Flash in memory that records what is written to it");
MODULE_LICENSE("Dual MIT/GPL");
