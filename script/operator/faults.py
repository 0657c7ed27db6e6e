"""Which process is killed when, all from a seed."""

import random
from dataclasses import dataclass


@dataclass
class Fault:
    at: float
    victim: object
    down: float


def plan(seed, seconds, groups):
    """Kills from a tenth of the run to its end, about one in eight seconds, any group at any moment. Of a
    group (the nodes, the replicas, ...) one is down at a time: a majority of nodes is what the buffer
    promises to live on."""
    chance = random.Random(seed)
    faults = []
    free = {}
    at = seconds / 10
    while at < seconds:
        name = chance.choice(sorted(groups))
        victim = chance.choice(groups[name])
        down = chance.uniform(1, 20)
        if free.get(name, 0) <= at:
            faults.append(Fault(at, victim, down))
            free[name] = at + down + 12  # to come up again, and to catch up
        at += chance.expovariate(1 / 8)
    return faults


class Faults:
    """Carries a plan out, step by step: step(now) is called often."""

    def __init__(self, faults, say):
        self.waiting = list(faults)
        self.down = []
        self.say = say
        self.done = 0

    def step(self, now):
        while self.waiting and self.waiting[0].at <= now:
            fault = self.waiting.pop(0)
            if fault.victim.running():
                fault.victim.kill()
                self.done += 1
                self.say(f"killed {fault.victim.name}, back in {fault.down:.0f} s")
                self.down.append((now + fault.down, fault.victim))
        for due in [entry for entry in self.down if entry[0] <= now]:
            self.down.remove(due)
            due[1].start()
            self.say(f"started {due[1].name} again")

    def end(self):
        """Everything is up again."""
        self.waiting.clear()
        self.step(float("inf"))
