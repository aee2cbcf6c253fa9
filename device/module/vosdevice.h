/* SPDX-License-Identifier: MIT OR GPL-2.0 */
/*
 * The orders that the kernel module of the emulated device takes, on netlink
 * protocol 30. An order is the payload of a netlink message to the kernel; the
 * answer is a message of type NLMSG_DONE whose payload is a __u32, the number
 * of messages that the receiver's queue has taken.
 */
#ifndef VOSDEVICE_H
#define VOSDEVICE_H

#include <linux/types.h>

#define VOSDEVICE_PROTOCOL 30

enum vosdevice_kind {
	VOSDEVICE_PACKET, /* a trapped packet of `length` bytes: 0, 1, 2, ... */
	VOSDEVICE_LINK,	  /* a link change: kind and arguments are `values` */
	VOSDEVICE_UNKNOWN, /* a header alone, of type values[0] */
	VOSDEVICE_SHORT,   /* a netlink message of `length` bytes behind its
			      header, all zero */
};

struct vosdevice_order {
	__u32 kind;
	__u32 port; /* whom to send to */
	__u32 count;
	__u32 length;
	__u32 values[4];
};

#endif
