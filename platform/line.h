/* The process's line: its channels, the events still to come and the script they come from. All of
   it is guarded by one lock but the inbox, which takes events without. */
#ifndef PLATFORM_LINE_H
#define PLATFORM_LINE_H

#include "inbox.h"
#include "scriptParser.h"
#include "vxAPI.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

class Line {
  public:
    /* Starts an action: uses up the script's next block for it. Returns 1, or what the script says.
       The action's text is what traces show. */
    int start(const chan_info *channel, ScriptTrigger trigger, const std::string &action);

    /* As start, and event 7 after the milliseconds. */
    int startTimer(const chan_info *channel, int32_t milliseconds, const std::string &action);

    bool cancelTimer(const chan_info *channel, const std::string &action);

    /* Blocks until an event is due for the calling thread. */
    void fetch(vx_event &event);

    /* Numbers the channel. */
    void open(const chan_info *channel);

    /* Forgets the channel, its timer and its events. */
    void close(const chan_info *channel);

    /* Starts anew with the script, or, on false, with every start refused. */
    void reset(LineScript script, bool usable);

  private:
    struct Channel {
        int32_t number = 0; // from 1
        std::string action; // the last one
        uint32_t owner = 0; // the thread that started it, by its number; 0: nobody yet
    };
    struct Pending {
        LineClock::time_point due;
        const chan_info *channel;
        int32_t code;
        int32_t subcode;
        bool timer;
    };

    Channel &channelOf(const chan_info *channel);
    void readFirstScript();
    void install(LineScript fresh, bool good);
    int take(const chan_info *channel, ScriptTrigger trigger, const std::string &action);
    void schedule(const chan_info *channel, const ScriptBlock &block);
    void insert(const Pending &event);
    bool removeTimer(const chan_info *channel);
    void emptyInbox();
    bool mayTake(const chan_info *channel) const;
    std::vector<Pending>::iterator firstForCaller();
    void deliver(const Pending &pending, vx_event &event);

    // Channels are told apart by address alone: what the record holds is its maker's.
    std::map<const chan_info *, Channel> channels;
    std::vector<Pending> events; // by time due; equal times in the order they were put in
    LineScript script;
    std::mutex guard;
    int32_t lastNumber = 0;
    int32_t lastSequence = 0;
    uint32_t lastCaller = 0;
    bool scriptRead = false;
    bool scriptUsable = true;
};

// The process's one line. Never destroyed: threads may still wait on it while the process ends.
Line &theLine();

/* An event from anywhere, signal handlers included; false when the inbox is full. */
bool postToLine(const chan_info *channel, int32_t code, int32_t subcode);

#endif
