#include <TandrellCore/Core/MergeTasksImpl.h>
#include <TandrellCore/Utility/Extensions/Message+Tools.h>

#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

::TrackingViewerDto viewer(std::uint64_t id) {
  ::TrackingViewerDto viewer;
  viewer.set_id(id);
  return viewer;
}

struct Session {
  std::vector<std::uint64_t> add = {};
  std::vector<std::uint64_t> remove = {};
  TrackingSessionEvent::Type event = TrackingSessionEvent::none;
};

ParcelTask task(const ::Parcel& parcel) { return {parcel, Promise<::Parcel>(nullptr)}; }

ParcelTask task(std::uint32_t id, const Session& session) {
  ::TrackingSessionDto message;
  for (const auto viewerId : session.add) *message.add_viewerstoadd() = viewer(viewerId);
  for (const auto viewerId : session.remove) *message.add_viewerstoremove() = viewer(viewerId);
  message.set_event(session.event);
  message.set_longitude(11);
  message.set_latitude(47);
  message.set_timestamp(1700000000);
  return task(*toParcel(message, id));
}

ParcelTask unreadableSession(std::uint32_t id) {
  ::Parcel parcel;
  parcel.set_id(id);
  parcel.mutable_package()->set_type(PackageType::trackingSession);
  parcel.mutable_package()->set_data("\xFF");
  return task(parcel);
}

ParcelTask message(std::uint32_t id) { return task(*toParcel(::MessageDto(), id)); }

std::vector<std::uint32_t> ids(const std::vector<ParcelTask>& tasks) {
  std::vector<std::uint32_t> ids;
  for (const auto& task : tasks) ids.push_back(task.parcel.id());
  return ids;
}

::TrackingSessionDto sessionOf(const ParcelTask& task) {
  return *fromData<::TrackingSessionDto>(viewOf(task.parcel.package().data()));
}

::TrackingSessionDto mergedSession(const std::vector<Session>& sessions) {
  std::vector<ParcelTask> tasks;
  for (const auto& session : sessions) {
    tasks.push_back(task(static_cast<std::uint32_t>(tasks.size() + 1), session));
  }
  const auto merged = mergeTasks(tasks);
  EXPECT_EQ(merged.size(), 1u);
  return sessionOf(merged.front());
}

std::vector<std::uint64_t> idsOf(
    const google::protobuf::RepeatedPtrField<::TrackingViewerDto>& viewers) {
  std::vector<std::uint64_t> ids;
  for (const auto& viewer : viewers) ids.push_back(viewer.id());
  return ids;
}

TEST(MergeTasks, PutsAllSessionsInThePlaceOfTheFirstAndKeepsTheRest) {
  const auto tasks = mergeTasks({message(1), task(2, {.add = {10}}), message(3),
                                 task(4, {.add = {11}}), task(5, {.remove = {12}})});
  EXPECT_EQ(ids(tasks), (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(idsOf(sessionOf(tasks[1]).viewerstoadd()), (std::vector<std::uint64_t>{10, 11}));
  EXPECT_EQ(idsOf(sessionOf(tasks[1]).viewerstoremove()), (std::vector<std::uint64_t>{12}));
  EXPECT_EQ(tasks[1].parcel.package().type(), PackageType::trackingSession);
  EXPECT_EQ(ids(mergeTasks({task(8, {}), message(9), task(10, {})})),
            (std::vector<std::uint32_t>{8, 9}));
}

TEST(MergeTasks, CancelsEqualViewersInEitherOrderOnceEach) {
  for (const auto& sessions : {std::vector<Session>{{.add = {1}}, {.remove = {1}}},
                               std::vector<Session>{{.remove = {1}}, {.add = {1}}}}) {
    const auto merged = mergedSession(sessions);
    EXPECT_EQ(merged.viewerstoadd_size() + merged.viewerstoremove_size(), 0);
  }
  const auto merged =
      mergedSession({{.add = {1, 2, 1}, .remove = {3}}, {.add = {4}, .remove = {1, 3}}});
  EXPECT_EQ(idsOf(merged.viewerstoadd()), (std::vector<std::uint64_t>{2, 1, 4}));
  EXPECT_EQ(idsOf(merged.viewerstoremove()), (std::vector<std::uint64_t>{3, 3}));
}

TEST(MergeTasks, TakesTheLastEventThatSaysSomethingAndNoPosition) {
  using namespace TrackingSessionEvent;
  EXPECT_EQ(mergedSession({{.event = enable}, {}, {.event = disable}}).event(), disable);
  EXPECT_EQ(mergedSession({{.event = enable}, {}}).event(), enable);
  const auto merged = mergedSession({{}, {}});
  EXPECT_EQ(merged.ByteSizeLong(), 0u) << debugText(merged);
}

TEST(MergeTasks, LeavesTheQueueAloneWithoutTwoReadableSessions) {
  EXPECT_EQ(ids(mergeTasks({message(1), task(2, {}), message(3)})),
            (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(ids(mergeTasks({unreadableSession(1), unreadableSession(2), task(3, {})})),
            (std::vector<std::uint32_t>{1, 2, 3}));
  // An unreadable one among readable ones is dropped with the others that are merged away.
  EXPECT_EQ(ids(mergeTasks({unreadableSession(1), task(2, {.add = {5}}), task(3, {})})),
            (std::vector<std::uint32_t>{1}));
}

}  // namespace
}  // namespace tandrell::test
