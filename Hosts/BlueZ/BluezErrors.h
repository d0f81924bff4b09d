#pragma once

#include <TandrellCore/Platform/CentralManager.h>

#include <optional>

/// How bluetoothd's errors, known by their D-Bus names and texts, read on the platform's interface.
namespace tandrell {

/// What became of a call on a device's objects.
enum class BluezFailure {
  refused,       ///< the device, or bluetoothd for it, said no
  busy,          ///< something of the kind is under way; worth another attempt
  unknown,       ///< the object is not there any more
  connectedYet,  ///< there is a link already
  outOfReach,    ///< bluetoothd stopped waiting for the device, by itself or for another client
  unclear        ///< perhaps the link is gone; what follows on the bus tells
};
BluezFailure failureOf(const Error& error);

/// The error as the library is told: the attribute protocol's codes in "CBATTErrorDomain", where
/// the text names one; what has expired as `uuidNotAllowed`; anything else unchanged.
Error platformError(const Error& error);

/// The other way round: with which error, by its D-Bus name and text, bluetoothd is told that a
/// write of a central is refused. What it has no word for becomes the first of the attribute
/// protocol's errors that belong to applications.
Error refusalOf(const Error& error);

}  // namespace tandrell
