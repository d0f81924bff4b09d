#include <TandrellCore/Utility/Safe.h>

namespace tandrell {

Safe::Safe(Dispatcher& dispatcher, QualityOfService qos)
    : queue_(dispatcher.makeQueue("com.quillfen.Skiff.Safe", qos, QueueKind::concurrent)) {}

}  // namespace tandrell
