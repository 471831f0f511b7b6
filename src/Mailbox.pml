/*
 * The mailbox, its stop and its restart, as a model for Spin: Mailbox, RequestGate, and of
 * ClientRequestManager and EventManager what they rely on. script/model searches all its schedules.
 *
 * Threads: the clients; the taker, which builds an engine and leaves it for good, or destroys it,
 * with a next one in its place or without; and the worker of each engine.
 *
 * Shown: each request is served at most once, in the order of arrival, no client returns without its
 * response but from an engine that ends, no descriptor or engine is used before it is there or after
 * it is gone, and no release is lost. There is no deadlock and no endless loop, so that every client
 * returns, every engine that is destroyed ends, and a worker without work sleeps. None of this takes
 * a fair scheduler.
 *
 * How it stands for the code:
 * - Every critical section is short and waits for nothing inside: it is one atomic step.
 * - Who waits for a gate sleeps on its condition variable; asleep[] names it. One wake-up without a
 *   cause may happen in a run, or none: were it sure to come, it would hide lost ones.
 * - A client waits for its response at the semaphore of its turn, which must be posted once, and
 *   not after the client has left.
 * - An eventfd is readable or not, and epoll reports what is at the time of the wait.
 * - Memory order is not part of it: all that threads share is locked or sequentially consistent.
 *
 * Each FAULT_... breaks the protocol in one place, and Spin has to find it.
 */

/* What a search is about: all at once would be too much.
 * CLIENTS: two or three. ROUNDS: requests of each, of which the second perhaps goes to a key that
 * the first brought. REPLACED: there may be a next engine. LISTENER: one on a worker or on the taker
 * may drop a key, once. SPURIOUS_WAKE_UP: one may happen. WRITES_FAIL: twice. ORDER: of
 * arrival, at one engine. */
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

/* Mailbox. Requests, and with them the turns, are numbered from 1; 0 is none. */
chan waiting[ENGINES] = [THREADS] of { byte };
byte inHand[ENGINES];
bool closed[ENGINES];
bool answered[CLIENTS * ROUNDS + 2];
bool unsent[CLIENTS * ROUNDS + 2];
bool over[CLIENTS * ROUNDS + 2];  /* a semaphore for each turn */
byte next;
#ifdef WRITES_FAIL
byte failuresLeft = 2;
#endif

/* ClientRequestManager. */
bool alive[ENGINES];
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
bool left[CLIENTS * ROUNDS + 2];
#ifdef ORDER
byte arrival[CLIENTS * ROUNDS + 2];
byte arrivals[ENGINES];
byte latestServed[ENGINES];
#endif
byte begun = 0;
bool hasKeys[ENGINES];
bool keyDropped = false;
byte releaseEngine = NONE;
bool released = false;

/* Condition variable, within atomic: whoever blocks here lets the others go on. */

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
    atomic {
        inside[e]--;
#ifndef FAULT_LEFT_IN_SILENCE
        if
        :: inside[e] == 0 -> notifyAll(CHANGED(e))
        :: else
        fi
#endif
    }
}

inline enter(e, entered) {
#ifndef FAULT_LOOKS_BEFORE_IT_COUNTS
    atomic {
        entered = open[e];
        inside[e] = (open[e] -> inside[e] + 1 : inside[e])
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

/* Mailbox, client threads. */

/* The turn is on the stack of its client, who leaves as soon as there is a post. */
inline letGo(id) {
    assert(!over[id] && !left[id]);
    over[id] = true
}

inline passOn(e) {
    do
    :: empty(waiting[e]) -> break
    :: nempty(waiting[e]) ->
       waiting[e]?<next>;
#ifndef FAULT_PASSED_ON_IN_SILENCE
       signalFor(e, next);
#endif
       if
       :: unsent[next] ->
          waiting[e]?next;
#ifndef FAULT_FAILURE_NOT_TOLD
          letGo(next);
#endif
          skip
       :: else -> break
       fi
    od;
    next = 0
}

inline append(e, id) {
#ifdef ORDER
    arrivals[e]++;
    arrival[id] = arrivals[e];
#endif
#ifndef FAULT_OUT_OF_ORDER
    waiting[e]!id;
#else
    waiting[e]!!id;  /* sorted by number */
#endif
    waiting[e]?<next>;
    isFirst = (next == id);
    next = 0
}

inline takeBack(e, id, takenBack) {
    atomic {
        assert(alive[e]);
        next = 0;
        if
        :: nempty(waiting[e]) -> waiting[e]?<next>
        :: else
        fi;
#ifndef FAULT_TAKEN_BACK_FROM_THE_WORKER
        takenBack = (next == id && inHand[e] != id);
#else
        takenBack = (next == id);
#endif
        next = 0;
        if
        :: takenBack -> waiting[e]?next; passOn(e)
        :: else
        fi
    }
}

inline post(e, id, answer) {
#ifdef FAULT_SIGNAL_BEFORE_REQUEST
    atomic { signalRequestFd(e) };
#endif
    atomic {
        assert(alive[e]);
        if
#ifndef FAULT_CLOSED_LETS_IN
        :: closed[e] -> answer = NONE
#endif
        :: else -> append(e, id)
        fi
    };
#ifndef FAULT_SIGNAL_BEFORE_REQUEST
    if
    :: isFirst ->
       atomic { signalFor(e, id); isFirst = false };
       if
       :: unsent[id] -> takeBack(e, id, takenBack)
       :: else
       fi
    :: else
    fi;
#endif
    atomic {
        if
        :: answer == NONE || takenBack -> answer = 0; takenBack = false
        :: else ->
           if
           :: over[id]
#ifdef FAULT_NOT_WAITED
           :: true
#endif
           fi;
           if
           :: answered[id] -> answer = id
           :: else -> assert(closed[e] || unsent[id])
           fi
        fi;
        left[id] = true;
        isFirst = false
    }
}

/* RequestGate::process on a thread that may wait. */
inline process(thread, e, id, answer) {
    enter(e, entered);
    if
    :: entered ->
       post(e, id, answer);
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
    bool entered, isFirst, takenBack;
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

/* Worker thread, and the taker while it destroys an engine: threads that must not wait. */

/* A listener drops a key. */
inline dropKeyWithoutWaiting(own) {
    if
    :: atomic { !keyDropped && hasKeys[0] -> keyDropped = true; dropped = 0 }
    :: atomic { !keyDropped && hasKeys[1] -> keyDropped = true; dropped = 1 }
    :: true
    fi;
    if
    :: dropped != NONE ->
       /* The worker of an engine needs no gate. */
       if
       :: dropped == own -> releaseEngine = own
       :: else -> enter(dropped, entered)
       fi;
       if
#ifndef FAULT_WORKER_SHUT_OUT
       :: dropped == own -> atomic { assert(alive[own]); deferred[own]++ }
#else
       :: dropped == own && open[own] -> deferred[own]++
       :: dropped == own && !open[own]
#endif
       :: dropped != own && entered ->
          atomic { assert(alive[dropped]); deferred[dropped]++; releaseEngine = dropped };
#ifndef FAULT_RELEASE_WITHOUT_SIGNAL
          atomic { signalRequestFd(dropped) };
#endif
          leave(dropped)
       :: else ->
#ifdef FAULT_WAITS_FOR_ITSELF
          if
          :: own == NONE -> waitUntilGone(TAKER, dropped)
          :: else
          fi;
#endif
          skip
       fi;
       atomic { dropped = NONE; entered = false }
    :: else
    fi
}

inline take(e) {
    atomic {
        turn = 0;
        if
        :: nempty(waiting[e]) ->
           waiting[e]?<turn>;
           assert(!served[turn] && !left[turn]);
#ifdef ORDER
           assert(arrival[turn] > latestServed[e]);
           latestServed[e] = arrival[turn];
#endif
           served[turn] = true
        :: else
        fi;
        inHand[e] = turn
    }
}

inline finish(e) {
    atomic {
        assert(!answered[turn] && !left[turn]);
        hasKeys[e] = true;
#ifndef FAULT_NOTIFY_BEFORE_STATE
        answered[turn] = true;
#endif
        waiting[e]?next;
        assert(next == turn);
        next = 0;
        inHand[e] = 0;
        passOn(e)
    };
    atomic { letGo(turn) };
#ifdef FAULT_NOTIFY_BEFORE_STATE
    atomic { answered[turn] = true };
#endif
    turn = 0
}

inline handleClientRequest(e) {
    take(e);
    if
    :: turn != 0 ->
       /* While the modem is asked, anything may happen. */
#ifdef LISTENER
       dropKeyWithoutWaiting(e);
#endif
       finish(e)
    :: else
    fi
}

/* EventManager::finishItem, with the one release that there may be. */
inline finishItem(e) {
    if
    :: atomic { deferred[e] > 0 -> deferred[e]--; assert(!released); released = true }
    :: else
    fi
}

proctype Worker(byte e) {
    bool mailboxIsReady, wakeIsReady, entered;
    byte dropped = NONE, turn;
    do
    :: stopped[e] -> break
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
             handleClientRequest(e)
          :: else
          fi;
          finishItem(e)
       :: atomic { wakeIsReady -> wakeIsReady = false; wakeFd[e] = false };
          finishItem(e)
       :: else -> break
       od
    od;
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

inline closeMailbox(e) {
    atomic {
        closed[e] = true;
#ifndef FAULT_STOP_WAKES_NOBODY
        if
#ifndef FAULT_TURNED_AWAY_IN_HAND
        :: inHand[e] != 0 -> waiting[e]?next
#endif
        :: else
        fi;
        do
        :: waiting[e]?next -> letGo(next)
        :: empty(waiting[e]) -> break
        od;
        if
        :: inHand[e] != 0 -> waiting[e]!inHand[e]
        :: else
        fi;
        next = 0
#endif
    }
}

inline destroy(e) {
    open[e] = false;  /* RequestGate::close */
    stopped[e] = true;
    closeMailbox(e);
#ifndef FAULT_CLIENTS_NOT_WAITED_FOR
    waitUntilEmpty(TAKER, e);
#endif
    watched[e] = false;
    handled[e] = false;
#ifndef FAULT_STOPPED_IN_SILENCE
    wakeFd[e] = true;
#endif
    workerEnded[e];  /* join */
#ifndef FAULT_RELEASE_LEFT_BEHIND
    finishItem(e);
#endif
#ifdef LISTENER
    dropKeyWithoutWaiting(NONE);
#endif
    atomic {
        requestFdIsOpen[e] = false;
        alive[e] = false;
        gone[e] = true;  /* RequestGate::finish */
        notifyAll(CHANGED(e))
    }
}

proctype Taker() {
    byte dropped = NONE;
    bool entered;
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
    released
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
