/* SPDX-License-Identifier: MIT */
/**
 * @file vos.hpp
 * C++: the whole interface in one include, C++17 or later, over the C interface of vos.h.
 *
 * Everything is in the namespace vos. A call that can fail returns vos::result<T>; nothing throws but value() on a
 * failed result. No exceptions and no run-time types are needed. Time-outs are durations of std::chrono, vos::forever
 * or vos::no_wait. See docs/cpp.md.
 */
#ifndef VOS_HPP
#define VOS_HPP

#include "vos.h"
#include "vosBytes.hpp"
#include "vosChannel.hpp"
#include "vosHandlers.hpp"
#include "vosHost.hpp"
#include "vosItems.hpp"
#include "vosLog.hpp"
#include "vosMsg.hpp"
#include "vosProcess.hpp"
#include "vosRegistration.hpp"
#include "vosRequest.hpp"
#include "vosResult.hpp"
#include "vosSocket.hpp"
#include "vosStore.hpp"
#include "vosSync.hpp"
#include "vosSystem.hpp"
#include "vosTime.hpp"

#endif
