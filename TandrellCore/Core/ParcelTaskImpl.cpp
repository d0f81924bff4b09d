#include <TandrellCore/Bluetooth/BleConfig.h>
#include <TandrellCore/Core/ParcelTaskImpl.h>
#include <TandrellCore/Utility/Extensions/Command+Tools.h>
#include <TandrellCore/Utility/Extensions/Data+Tools.h>
#include <TandrellCore/Utility/Logger.h>

namespace tandrell {
namespace {

constexpr SourceLog log("DeviceUtil");
constexpr std::string_view operation = "start(session:)";

}  // namespace

void ParcelTask::start(BleSession& session) const {
  const Data data = prepareForWrite(parcel);
  log.verbose(operation, [&] {
    return fmt::format("willWrite: length={}; data={}", data.size(), base64(data));
  });
  ++*openWrites;
  session.writeData(BleConfig::DeviceUUIDs::ReceivingChar, data)
      .then([task = *this](const Data&) {
        --*task.openWrites;
        log.debug(operation, [] { return "start: parcel send success"; });
        task.promise.fulfill(task.parcel);
      })
      .onError([task = *this](const Error& error) {
        --*task.openWrites;
        log.debug(operation,
                  [&] { return "start: parcel send failure; error=" + error.description(); });
        task.promise.reject(error);
      });
}

}  // namespace tandrell
