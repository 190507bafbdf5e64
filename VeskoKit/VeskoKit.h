#pragma once

// Everything a program that embeds the library needs: this include alone.

#include "Platform/files/Data.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/queues/MainQueue.h"
#include "Platform/text/TextEncoding.h"
#include "Platform/user/NSApp.h"
#include "VeskoKit/BinUtils.h"
#include "VeskoKit/Counter.h"
#include "VeskoKit/ItemWalk.h"
#include "VeskoKit/Log.h"
#include "VeskoKit/NetInfo.h"
#include "VeskoKit/NetworkTools.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/RandomText.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoItem.h"
#include "VeskoKit/VeskoPeer.h"
#include "VeskoKit/VeskoServer.h"
#include "VeskoKit/VeskoTransfer.h"
#include "VeskoKit/VeskoTransferOutcome.h"
