/* SPDX-License-Identifier: MIT */
/**
 * @file vos.h
 * The whole public interface of libvos in one include.
 */
#ifndef VOS_H
#define VOS_H

#include "vosDebug.h"
#include "vosFile.h"
#include "vosList.h"
#include "vosMsg.h"
#include "vosMsgChannel.h"
#include "vosMsgTap.h"
#include "vosProcess.h"
#include "vosSys.h"
#include "vosSysConfig.h"
#include "vosTypes.h"

#endif
