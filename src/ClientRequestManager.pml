/*
 * The mailbox, its stop and its restart, as a model for Spin: ClientRequestManager, RequestGate, and
 * of EventManager what they rely on. script/model searches all its schedules.
 *
 * Threads: the clients; the taker, which builds an engine and leaves it for good, or takes it down,
 * with a next one in its place or without; and the worker of each engine.
 *
 * Shown: no request is overwritten or served twice, no answer goes to another's request, no client
 * returns without an answer but from an engine that goes away, no descriptor or engine is used
 * before it is there or after it is gone, and no release is lost. There is no deadlock and no endless
 * loop, so that every client returns, every engine that is taken down ends, and a worker without work
 * sleeps. None of this takes a fair scheduler.
 *
 * How it stands for the code:
 * - The engine's mutex is a lock of the model, since the worker holds it while it does much else.
 *   Every other critical section is short and waits for nothing inside: it is one atomic step.
 * - Who waits for a gate sleeps on its condition variable; asleep[] names it. One wake-up without a
 *   cause may happen in a run, or none: were it sure to come, it would hide lost ones.
 * - A client waits for its response at the semaphore of its turn, which must be posted once.
 * - An eventfd is readable or not, and epoll reports what is at the time of the wait.
 * - There is memory for every turn. A turn is used once, but for searches that are about its reuse.
 * - Memory order is not part of it: all that threads share is locked or sequentially consistent.
 *
 * Each FAULT_... breaks the protocol in one place, and Spin has to find it.
 */

/* What a search is about: all at once would be too much.
 * CLIENTS: two or three. ROUNDS: requests of each, of which the second perhaps goes to a key that
 * the first brought. REPLACED: there may be a next engine. LISTENER: one on a worker or on the taker
 * may drop a key, once. SPURIOUS_WAKE_UP: one may happen. WRITES_FAIL: twice. TURNS_REUSED: clients
 * give their turns back for others. */
#ifndef CLIENTS
#define CLIENTS 3
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif
#define TAKER 3
#define THREADS 4
#define ENGINES 2
#define NONE 255

/* Condition variables: what a thread sleeps on. */
#define AWAKE 0
#define CHANGED(e) (1 + (e))
byte asleep[THREADS];

/* Manager: the engine that calls go to. */
byte current = NONE;

/* RequestGate. */
bool open[ENGINES];
bool gone[ENGINES];
byte inside[ENGINES];

/* ClientRequestManager. Requests, and with them the turns, are numbered from 1; 0 is an empty
 * mailbox. */
bool alive[ENGINES];
bool locked[ENGINES];
byte mailbox[ENGINES];
chan waiting[ENGINES] = [THREADS] of { byte };
bool answered[CLIENTS * ROUNDS + 2];
bool unsent[CLIENTS * ROUNDS + 2];
bool over[CLIENTS * ROUNDS + 2];  /* a semaphore for each turn */
#ifdef TURNS_REUSED
byte turnOf[CLIENTS * ROUNDS + 2];
chan spares[ENGINES] = [THREADS] of { byte };
byte turnsMade;
#define TURN(id) turnOf[id]
#else
#define TURN(id) id
#endif
bool closing[ENGINES];
byte next;
#ifdef WRITES_FAIL
byte failuresLeft = 2;
#endif
bool running[ENGINES];
bool workerEnded[ENGINES];

/* EventManager. The handler is looked up apart from epoll's registration. */
bool stopped[ENGINES];
bool watched[ENGINES];
bool handled[ENGINES];
bool requestFdIsOpen[ENGINES];
bool requestFd[ENGINES];
bool wakeFd[ENGINES];
byte deferred[ENGINES];

/* What the properties are about. */
bool served[CLIENTS * ROUNDS + 2];
byte begun = 0;
bool hasKeys[ENGINES];
bool keyDropped = false;
byte releaseEngine = NONE;
bool released = false;

/* Mutex and condition variable, within atomic: whoever blocks here lets the others go on. */

inline lock(e) {
    !locked[e] -> locked[e] = true;
    assert(alive[e])
}

inline unlock(e) { locked[e] = false }

#define WAKE_IF(thread, condition) if :: (condition) -> asleep[thread] = AWAKE :: else fi

inline notifyAll(cv) {
    WAKE_IF(0, asleep[0] == cv);
    WAKE_IF(1, asleep[1] == cv);
    WAKE_IF(2, asleep[2] == cv);
    WAKE_IF(TAKER, asleep[TAKER] == cv)
}

/* signalEventFd. A number that is no descriptor yet, or no more, is nobody's to write to. */
inline signalRequestFd(e) {
    assert(alive[e] && requestFdIsOpen[e]);
    requestFd[e] = true
}

/* Writing may fail, and the request is then not served. */
inline signalFor(e, id) {
    if
    :: signalRequestFd(e)
#ifdef WRITES_FAIL
    :: failuresLeft > 0 -> failuresLeft--; unsent[id] = true
#endif
    fi
}

/* RequestGate. */

inline leave(e) {
    inside[e]--;
#ifndef FAULT_LEFT_IN_SILENCE
    if
    :: atomic { inside[e] == 0 && !open[e] -> notifyAll(CHANGED(e)) }
    :: else
    fi
#endif
}

inline enter(e, entered) {
#ifndef FAULT_LOOKS_BEFORE_IT_COUNTS
    inside[e]++;
    /* Who finds the gate closed leaves in the same step: nobody else's depends on what is between. */
    atomic {
        entered = open[e];
        if
        :: !entered && inside[e] == 1 -> inside[e] = 0; notifyAll(CHANGED(e))
        :: !entered && inside[e] > 1 -> inside[e]--
        :: else
        fi
    }
#else
    entered = open[e];
    if
    :: entered -> inside[e]++
    :: else
    fi
#endif
}

inline waitUntilGone(thread, e) {
    atomic {
        do
        :: !open[e] && !gone[e] -> asleep[thread] = CHANGED(e); asleep[thread] == AWAKE
        :: else -> break
        od
    }
}

inline waitUntilEmpty(thread, e) {
    atomic {
        do
        :: inside[e] > 0 -> asleep[thread] = CHANGED(e); asleep[thread] == AWAKE
        :: else -> break
        od
    }
}

/* ClientRequestManager, client threads. */

/* A second post would let the next client of the turn leave too early. */
inline letGo(id) {
    assert(!over[TURN(id)]);
    over[TURN(id)] = true
}

inline takeTurn(e, id) {
#ifdef TURNS_REUSED
    if
    :: spares[e]?turnOf[id]
    :: empty(spares[e]) -> turnsMade++; turnOf[id] = turnsMade
    fi
#else
    skip
#endif
}

inline giveTurnBack(e, id) {
#ifdef TURNS_REUSED
    spares[e]!turnOf[id]
#else
    skip
#endif
}

inline passMailbox(e) {
    do
    :: mailbox[e] == 0 && nempty(waiting[e]) ->
       waiting[e]?next;
#ifndef FAULT_MAILBOX_PASSED_IN_SILENCE
       signalFor(e, next);
#endif
       if
       :: unsent[next] ->
#ifndef FAULT_FAILURE_NOT_TOLD
          letGo(next);
#endif
          skip
       :: else -> mailbox[e] = next
       fi;
       next = 0
    :: else -> break
    od
}

/* Without a turn, the answer is NONE. */
inline post(e, id, isFirst, answer) {
    atomic {
        lock(e);
        if
        :: closing[e] -> answer = NONE
#ifndef FAULT_NO_TURNS
        :: !closing[e] && mailbox[e] != 0 -> takeTurn(e, id); waiting[e]!id
        :: !closing[e] && mailbox[e] == 0 ->
#else
        :: else ->
#endif
           takeTurn(e, id);
           mailbox[e] = id;
           isFirst = true
        fi;
        unlock(e)
    }
}

inline takeBack(e, id) {
    atomic {
        lock(e);
        if
        :: mailbox[e] == id -> mailbox[e] = 0; letGo(id); passMailbox(e)
        :: else
        fi;
        unlock(e)
    }
}

inline awaitResponse(e, id, answer) {
    atomic {
        if
        :: over[TURN(id)]
#ifdef TURNS_REUSED
           -> over[TURN(id)] = false
#endif
#ifdef FAULT_NOT_WAITED
        :: true
#endif
#ifdef FAULT_LEAVES_WITHOUT_ITS_POST
        :: answered[id]
#endif
        fi
    };
    atomic {
        lock(e);
        if
        :: answered[id] -> answer = id
        :: else -> assert(closing[e] || unsent[id])
        fi;
        giveTurnBack(e, id);
        unlock(e)
    }
}

inline processClientRequest(e, id, answer) {
#ifdef FAULT_SIGNAL_BEFORE_REQUEST
    atomic { signalRequestFd(e) };
#endif
    post(e, id, isFirst, answer);
#ifndef FAULT_SIGNAL_BEFORE_REQUEST
    if
    :: isFirst ->
       atomic { signalFor(e, id); isFirst = false };
       if
       :: unsent[id] -> takeBack(e, id)
       :: else
       fi
    :: else
    fi;
#endif
    if
    :: answer == NONE -> answer = 0
    :: else -> awaitResponse(e, id, answer)
    fi
}

/* RequestGate::process on a thread that may wait. */
inline process(thread, e, id, answer) {
    enter(e, entered);
    if
    :: entered ->
       processClientRequest(e, id, answer);
#ifdef FAULT_REQUEST_DROPPED_INSIDE
       /* And with it a key, which waits for the end of the engine. */
       if
       :: answer == 0 -> waitUntilGone(thread, e)
       :: else
       fi;
#endif
       leave(e)
    :: else
    fi
}

proctype Client(byte me) {
    byte round = 0, engine, key = NONE, answer;
    bool entered, isFirst;
    do
    :: round < ROUNDS ->
       /* The clients are alike, so that it is enough to look at one order of their beginnings. */
       atomic {
           begun >= me ->
           if
           :: engine = current
           :: key != NONE -> engine = key
           fi;
           if
           :: begun == me -> begun++
           :: else
           fi
       };
       if
       :: engine != NONE ->
          process(me, engine, 1 + me * ROUNDS + round, answer);
          if
          :: answer == 0 -> waitUntilGone(me, engine)
          :: else -> key = engine
          fi
       :: else  /* Manager is not initialized. */
       fi;
       atomic { round++; engine = 0; answer = 0; entered = false }
    :: else -> break
    od
}

/* Worker thread. */

/* A listener drops a key: RequestGate::process with processWithoutWaiting. */
inline dropKeyWithoutWaiting(own) {
    if
    :: atomic { !keyDropped && hasKeys[0] -> keyDropped = true; dropped = 0 }
    :: atomic { !keyDropped && hasKeys[1] -> keyDropped = true; dropped = 1 }
    :: true
    fi;
    if
    :: dropped != NONE ->
       enter(dropped, entered);
       if
       :: entered ->
          atomic { assert(alive[dropped]); deferred[dropped]++; releaseEngine = dropped };
#ifndef FAULT_RELEASE_WITHOUT_SIGNAL
          if
          :: dropped != own -> atomic { signalRequestFd(dropped) }
          :: else
          fi;
#endif
          leave(dropped)
       :: else
       fi;
       atomic { dropped = NONE; entered = false }
    :: else
    fi
}

inline serveRequest(e) {
    atomic {
        lock(e);
        turn = mailbox[e];
        if
        :: turn != 0 -> assert(!served[turn]); served[turn] = true
        :: else -> unlock(e)
        fi
    };
    if
    :: turn != 0 ->
       /* While the modem is asked, anything may happen. */
#ifdef LISTENER
       dropKeyWithoutWaiting(e);
#endif
       atomic {
           assert(mailbox[e] == turn && !answered[turn]);
#ifndef FAULT_NOTIFY_BEFORE_STATE
           answered[turn] = true;
#endif
           hasKeys[e] = true;
           mailbox[e] = 0;
           passMailbox(e);
           unlock(e)
       };
       /* Not under the lock, for which the client would have to wait. */
       atomic { letGo(turn) };
#ifdef FAULT_NOTIFY_BEFORE_STATE
       atomic { answered[turn] = true };
#endif
       turn = 0
    :: else
    fi
}

/* EventManager::finishItem, with the one release that there may be. */
inline finishItem(e) {
    if
    :: atomic { deferred[e] > 0 -> deferred[e]-- };
       atomic { lock(e); assert(!released); released = true; unlock(e) }
    :: else
    fi
}

proctype Worker(byte e) {
    bool mailboxIsReady, wakeIsReady, entered;
    byte dropped = NONE, turn;
    running[e] = true;
    do
    :: !running[e] -> break
#ifndef FAULT_RUNNING_FLAG_ALONE
    :: stopped[e] -> break
#endif
    :: else ->
end_without_work:
       atomic {
           (watched[e] && requestFd[e]) || wakeFd[e] ->
           mailboxIsReady = watched[e] && requestFd[e];
           wakeIsReady = wakeFd[e]
       };
       do
       :: mailboxIsReady ->
          mailboxIsReady = false;
          if
          :: handled[e] ->
#ifndef FAULT_NO_DRAIN
             requestFd[e] = false;
#endif
             serveRequest(e)
          :: else
          fi;
          finishItem(e)
       :: atomic { wakeIsReady -> wakeIsReady = false; wakeFd[e] = false };
          finishItem(e)
       :: else -> break
       od
    od;
    finishItem(e);
    workerEnded[e] = true
}

/* Construction and destruction. */

/* The thread may run from the start. The other steps are nobody's business before the last. */
inline construct(e) {
    atomic { alive[e] = true; open[e] = true; run Worker(e) };
#ifdef FAULT_PUBLISHED_TOO_EARLY
    current = e;
#endif
    atomic { requestFdIsOpen[e] = true; watched[e] = true; handled[e] = true; current = e }
}

inline turnClientsAway(e) {
    atomic {
        lock(e);
        closing[e] = true;
#ifndef FAULT_STOP_WAKES_NOBODY
        if
        :: mailbox[e] != 0 ->
           letGo(mailbox[e]);
#ifndef FAULT_SERVED_WHEN_TURNED_AWAY
           mailbox[e] = 0
#endif
        :: else
        fi;
        do
        :: waiting[e]?next -> letGo(next)
        :: empty(waiting[e]) -> break
        od;
        next = 0;
#endif
        unlock(e)
    }
}

/* The profiles of a cache that goes call their listeners, and one of these drops a key. */
inline dropKeyInListener(e) {
    if
    :: atomic { !keyDropped && hasKeys[e] -> keyDropped = true; dropped = e }
    :: atomic { !keyDropped && hasKeys[1 - e] -> keyDropped = true; dropped = 1 - e }
    :: true
    fi;
    if
    :: dropped != NONE ->
       process(TAKER, dropped, CLIENTS * ROUNDS + 1, answer);
#ifdef FAULT_WAITS_FOR_ITSELF
       if
       :: answer == 0 -> waitUntilGone(TAKER, dropped)
       :: else
       fi;
#endif
       atomic { dropped = NONE; entered = false; answer = 0 }
    :: else
    fi
}

inline destroy(e) {
    open[e] = false;  /* close() */
    stopped[e] = true;
    turnClientsAway(e);
#ifndef FAULT_CLIENTS_NOT_WAITED_FOR
    waitUntilEmpty(TAKER, e);
#endif
    watched[e] = false;
    handled[e] = false;
    running[e] = false;
    wakeFd[e] = true;
    atomic { workerEnded[e] -> requestFdIsOpen[e] = false };  /* join() and close() */
#ifdef LISTENER
    dropKeyInListener(e);
#endif
    atomic {
        assert(!locked[e]);
        alive[e] = false;
        gone[e] = true;  /* finish() */
        notifyAll(CHANGED(e))
    }
}

proctype Taker() {
    byte dropped = NONE, answer;
    bool entered, isFirst;
    construct(0);
    if
    :: goto done  /* It stays for good. */
#ifdef REPLACED
    :: construct(1)
#endif
    :: current = NONE
    fi;
    destroy(0);
done:
    skip
}

/* Stuck in its second step, it stands for a release that an engine took and never carried out. */
active proctype ReleaseWitness() {
end_without_release:
    releaseEngine != NONE;
    released || stopped[releaseEngine]
}

#ifdef SPURIOUS_WAKE_UP
active proctype SpuriousWakeUp() {
    if
    :: true
    :: true ->
end_without_sleeper:
       if
       :: asleep[0] != AWAKE -> asleep[0] = AWAKE
       :: asleep[1] != AWAKE -> asleep[1] = AWAKE
       :: asleep[2] != AWAKE -> asleep[2] = AWAKE
       :: asleep[TAKER] != AWAKE -> asleep[TAKER] = AWAKE
       fi
    fi
}
#endif

init {
    atomic {
        run Taker();
        run Client(0);
        run Client(1);
#if CLIENTS == 3
        run Client(2)
#endif
    }
}
