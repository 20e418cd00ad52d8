// Races that the engine's design accepts, named for ThreadSanitizer. Linked
// into the engine tests only when they are built with it.

extern "C" const char* __tsan_default_suppressions() {
    return
        // A data event answers getInstanceState() without taking the queue
        // mutex: host code may ask an event it holds while the delivering
        // thread records a new writer generation of the event's instance.
        // The answer is then the old or the new state, both of them valid.
        "race:DataEventImpl*getInstanceState\n"
        // A notifier that subscribeAsync tells about the backlog runs under
        // the listener mutex alone, so that it may read the subscriber; that
        // read takes the queue mutex, the reverse of the order of delivery.
        // Notifier subscriptions are therefore made while nothing is being
        // delivered, and the inverted order is the price of letting them read.
        "deadlock:DataEventPredicateAsyncSubscriptionNotifier*matchAndProcess\n";
}
