#pragma once

/** Everything that liborvi_core offers, by family: each builds on those above it. */

// base
#include <orvi/core/Arguments.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Export.h>
#include <orvi/core/Log.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/String.h>
#include <orvi/core/Time.h>

// diagnostics
#include <orvi/core/CallStack.h>
#include <orvi/core/Console.h>
#include <orvi/core/CrashReporter.h>

// objects
#include <orvi/core/Callback.h>
#include <orvi/core/CallbackList.h>
#include <orvi/core/Event.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Unknown.h>

// streams
#include <orvi/core/Archive.h>
#include <orvi/core/Base64.h>
#include <orvi/core/Buffer.h>
#include <orvi/core/Digest.h>
#include <orvi/core/Pipe.h>
#include <orvi/core/Stream.h>
#include <orvi/core/Varint.h>

// memory
#include <orvi/core/MemoryFile.h>
#include <orvi/core/MemoryStream.h>

// files
#include <orvi/core/ArchiveFactory.h>
#include <orvi/core/Directory.h>
#include <orvi/core/File.h>
#include <orvi/core/FileMutex.h>

// text
#include <orvi/core/Configuration.h>
#include <orvi/core/Text.h>

// values
#include <orvi/core/Geometry.h>
#include <orvi/core/Uuid.h>

// documents
#include <orvi/core/Json.h>
#include <orvi/core/JsonValue.h>

// properties
#include <orvi/core/Property.h>
#include <orvi/core/PropertyAttribute.h>
#include <orvi/core/PropertyConverter.h>
#include <orvi/core/PropertyFactory.h>
#include <orvi/core/PropertyHelper.h>
#include <orvi/core/PropertyTable.h>

// runtime
#include <orvi/core/RunQueue.h>
#include <orvi/core/Semaphore.h>
#include <orvi/core/System.h>
#include <orvi/core/Thread.h>
#include <orvi/core/Tick.h>
#include <orvi/core/Watch.h>

// messages
#include <orvi/core/Message.h>
#include <orvi/core/MessageDispenser.h>
#include <orvi/core/MessageHandler.h>
#include <orvi/core/MessagePort.h>
#include <orvi/core/MessageReader.h>
#include <orvi/core/MessageTable.h>
#include <orvi/core/Mtbl.h>
#include <orvi/core/Packet.h>

// hosting
#include <orvi/core/App.h>
#include <orvi/core/DllModule.h>
#include <orvi/core/Service.h>
#include <orvi/core/ServiceSystem.h>
