// SPDX-License-Identifier: MIT OR GPL-2.0
/*
 * Replaces the kernel module of the device: unicasts trapped packets and link
 * changes to processes, on order, in every network namespace. A real module
 * gets them from its switch chip; this one gets them from a program that sends
 * orders.
 */
#include <linux/module.h>
#include <linux/netlink.h>
#include <net/net_namespace.h>
#include <net/netlink.h>
#include <net/netns/generic.h>
#include <net/sock.h>

#include "vosdevice.h"

/* The header of every message of the message core, and what surrounds a
 * packet. */
struct vos_head {
	u32 type;
	u32 no_return;
	s32 ret_code;
	u32 value[4];
	u32 buf_len;
};

#define VOS_TYPE_PACKET 1
#define VOS_TYPE_LINK	2
#define PACKET_PADDING	2
#define PACKET_INFO	(88 + 56)
#define LONGEST		60000

static unsigned int vosdevice_net_id;

struct vosdevice_net {
	struct sock *socket;
};

static void fill_packet(u8 *payload, u32 length)
{
	u32 i;

	for (i = 0; i < length; i++)
		payload[PACKET_PADDING + i] = (u8)i;
	memset(payload + PACKET_PADDING + length, 0xA5, PACKET_INFO);
}

static u32 payload_of(const struct vosdevice_order *order)
{
	return order->kind == VOSDEVICE_PACKET
		   ? PACKET_PADDING + order->length + PACKET_INFO
		   : 0;
}

static struct sk_buff *build(const struct vosdevice_order *order)
{
	const u32 payload = payload_of(order);
	const bool bare = order->kind == VOSDEVICE_SHORT;
	const u32 size =
	    bare ? order->length : sizeof(struct vos_head) + payload;
	struct sk_buff *skb = nlmsg_new(size, GFP_KERNEL);
	struct nlmsghdr *outer;
	struct vos_head *head;

	if (!skb)
		return NULL;
	outer = nlmsg_put(skb, 0, 0, 0, (int)size, 0);
	if (!outer) {
		kfree_skb(skb);
		return NULL;
	}
	/* The datagram ends with the message, without the padding of a netlink
	 * message. */
	skb_trim(skb, NLMSG_HDRLEN + size);
	memset(nlmsg_data(outer), 0, size);
	if (bare)
		return skb;
	head = nlmsg_data(outer);
	head->no_return = 1;
	head->buf_len = payload;
	memcpy(head->value, order->values, sizeof(head->value));
	switch (order->kind) {
	case VOSDEVICE_PACKET:
		head->type = VOS_TYPE_PACKET;
		head->value[0] = order->length;
		fill_packet((u8 *)(head + 1), order->length);
		break;
	case VOSDEVICE_LINK:
		head->type = VOS_TYPE_LINK;
		break;
	default:
		head->type = order->values[0];
		head->value[0] = order->values[1];
		break;
	}
	return skb;
}

static void report(struct sock *socket, u32 port, u32 sent)
{
	struct sk_buff *skb = nlmsg_new(sizeof(sent), GFP_KERNEL);
	struct nlmsghdr *outer;

	if (!skb)
		return;
	outer = nlmsg_put(skb, 0, 0, NLMSG_DONE, sizeof(sent), 0);
	if (!outer) {
		kfree_skb(skb);
		return;
	}
	memcpy(nlmsg_data(outer), &sent, sizeof(sent));
	netlink_unicast(socket, skb, port, MSG_DONTWAIT);
}

static void vosdevice_receive(struct sk_buff *skb)
{
	const struct nlmsghdr *outer = nlmsg_hdr(skb);
	struct sock *socket = skb->sk;
	struct vosdevice_net *own =
	    net_generic(sock_net(socket), vosdevice_net_id);
	struct vosdevice_order order;
	u32 sent = 0;
	u32 i;

	if (skb->len < NLMSG_HDRLEN + sizeof(order) ||
	    outer->nlmsg_len < NLMSG_HDRLEN + sizeof(order))
		return;
	memcpy(&order, nlmsg_data(outer), sizeof(order));
	if (order.length > LONGEST)
		return;
	for (i = 0; i < order.count; i++) {
		struct sk_buff *message = build(&order);

		if (message && netlink_unicast(own->socket, message, order.port,
					       MSG_DONTWAIT) >= 0)
			sent++;
	}
	report(own->socket, NETLINK_CB(skb).portid, sent);
}

static int __net_init vosdevice_net_init(struct net *net)
{
	struct netlink_kernel_cfg config = {.input = vosdevice_receive};
	struct vosdevice_net *own = net_generic(net, vosdevice_net_id);

	own->socket = netlink_kernel_create(net, VOSDEVICE_PROTOCOL, &config);
	return own->socket ? 0 : -ENOMEM;
}

static void __net_exit vosdevice_net_exit(struct net *net)
{
	struct vosdevice_net *own = net_generic(net, vosdevice_net_id);

	netlink_kernel_release(own->socket);
}

static struct pernet_operations vosdevice_net_operations = {
    .init = vosdevice_net_init,
    .exit = vosdevice_net_exit,
    .id = &vosdevice_net_id,
    .size = sizeof(struct vosdevice_net),
};

static int __init vosdevice_init(void)
{
	return register_pernet_subsys(&vosdevice_net_operations);
}

static void __exit vosdevice_exit(void)
{
	unregister_pernet_subsys(&vosdevice_net_operations);
}

module_init(vosdevice_init);
module_exit(vosdevice_exit);
MODULE_DESCRIPTION("Trapped packets and link changes for processes, on order");
MODULE_LICENSE("Dual MIT/GPL");
