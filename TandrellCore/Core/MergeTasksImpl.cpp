#include <TandrellCore/Core/MergeTasksImpl.h>
#include <TandrellCore/Proto/Names.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>
#include <TandrellCore/Utility/Logger.h>

#include <algorithm>

namespace tandrell {
namespace {

constexpr SourceLog log("DeviceUtil");
constexpr std::string_view operation = "mergeTasks(_:)";

using Viewers = std::vector<::TrackingViewerDto>;
using Sessions = std::vector<::TrackingSessionDto>;

bool isTrackingSession(const ParcelTask& task) {
  return task.parcel.package().type() == PackageType::trackingSession;
}

Sessions sessionsIn(const std::vector<ParcelTask>& tasks) {
  Sessions sessions;
  for (const auto& task : tasks) {
    if (!isTrackingSession(task)) continue;
    auto session = fromData<::TrackingSessionDto>(viewOf(task.parcel.package().data()));
    if (session) sessions.push_back(std::move(*session));
  }
  return sessions;
}

/// Leaves in both lists what does not cancel.
void cancelViewers(Viewers& toAdd, Viewers& toRemove) {
  std::erase_if(toAdd, [&](const auto& added) {
    const auto removed = std::find_if(toRemove.begin(), toRemove.end(), [&](const auto& candidate) {
      return isEqual(added, candidate);
    });
    if (removed == toRemove.end()) return false;
    toRemove.erase(removed);
    return true;
  });
}

::TrackingSessionDto merged(const Sessions& sessions) {
  ::TrackingSessionDto result;
  Viewers toAdd;
  Viewers toRemove;
  for (const auto& session : sessions) {
    toAdd.insert(toAdd.end(), session.viewerstoadd().begin(), session.viewerstoadd().end());
    toRemove.insert(toRemove.end(), session.viewerstoremove().begin(),
                    session.viewerstoremove().end());
    if (session.event() != TrackingSessionEvent::none) result.set_event(session.event());
  }
  cancelViewers(toAdd, toRemove);
  result.mutable_viewerstoadd()->Add(toAdd.begin(), toAdd.end());
  result.mutable_viewerstoremove()->Add(toRemove.begin(), toRemove.end());
  return result;
}

std::vector<ParcelTask> withMergedSession(std::vector<ParcelTask> tasks, const Data& session) {
  const auto first = std::find_if(tasks.begin(), tasks.end(), isTrackingSession);
  first->parcel.mutable_package()->set_data(session.data(), session.size());
  tasks.erase(std::remove_if(std::next(first), tasks.end(), isTrackingSession), tasks.end());
  return tasks;
}

}  // namespace

std::vector<ParcelTask> mergeTasks(std::vector<ParcelTask> tasks) {
  if (tasks.size() < 2) return tasks;
  log.debug(operation, [] { return "mergeTasks: start"; });
  if (std::count_if(tasks.begin(), tasks.end(), isTrackingSession) < 2) {
    log.debug(operation,
              [] { return "mergeTasks: skip - less than 2 tracking sessions in queue"; });
    return tasks;
  }
  const auto sessions = sessionsIn(tasks);
  if (sessions.size() < 2) {
    log.debug(operation, [] {
      return "mergeTasks: skip - less than 2 tracking sessions after deserializing";
    });
    return tasks;
  }
  const auto session = safeData(merged(sessions));
  if (!session) {
    log.warning(operation, [] { return "mergeTasks: failed to serialize merged session"; });
    return tasks;
  }
  tasks = withMergedSession(std::move(tasks), *session);
  log.debug(operation,
            [&] { return fmt::format("mergeTasks: success; taskCount={}", tasks.size()); });
  return tasks;
}

}  // namespace tandrell
