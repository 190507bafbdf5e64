#pragma once

// The one header that a program includes to embed the library. `VeskoServer` is the class to begin with; its comment
// shows the order of the calls, and examples/hand_over.cpp is a whole program.
//
// Words used in all comments:
//   host            the program that embeds the library
//   peer            another machine that runs the same protocol
//   hello, goodbye  datagrams that tell others that a machine is there, or leaves
//   avatar          the picture of a user, as PNG
//   element         one file, folder or text in the stream of a transfer
//   observer        an object of the host whose operations the library calls ("delegate" in the names)
//   any thread      may be called on any thread without further locking
// Texts are UTF-8. IPv4 addresses are in dotted-decimal form.

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
