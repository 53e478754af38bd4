/// Qt is not built for ThreadSanitizer, which therefore does not see how Qt's own mutexes order the hand-over
/// of queued events and the end of a thread. Only the frames in which Qt itself frees or passes on what it
/// has ordered so are left out; races in our own code are reported wherever Qt calls it from. But for the
/// upload's worker: all that the main thread does after QThread::wait() would count as a race with it.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "called_from_lib:libglib-2.0.so.0\n"
           "race:QObjectPrivate::Connection::~Connection\n"
           "race:QWaitCondition::~QWaitCondition\n"
           "race:QCoreApplication::removePostedEvents\n"
           "race:QCoreApplicationPrivate::sendPostedEvents\n"
           "race:QArrayData::allocate\n"
           "race:FwUpdateWorker::process\n"
           "race_top:QtPrivate::FunctorCall\n";
}
