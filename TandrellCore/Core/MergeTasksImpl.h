#pragma once

#include <TandrellCore/Core/ParcelTaskImpl.h>

#include <vector>

namespace tandrell {

/// Changes to a location-sharing session are cheap to make and expensive to transmit: all queued
/// tracking-session tasks become one, in the place of the first.
///
/// An added and a removed viewer that are equal cancel each other, whichever came first, and
/// neither survives. The event is the last that is not `none`. The merged session carries no
/// position and no time. The tasks that are left out are neither completed nor failed. Where there
/// are fewer than two sessions that can be read, the tasks are returned as they are.
std::vector<ParcelTask> mergeTasks(std::vector<ParcelTask> tasks);

}  // namespace tandrell
