"""Waiting for events of the board, with a time limit, in a loop or in asyncio."""
from __future__ import annotations

import select
from collections.abc import AsyncIterator, Callable, Iterator
from types import TracebackType
from typing import Generic, TypeVar

from ._binding import Handle

Event = TypeVar("Event")
Channel = TypeVar("Channel", int, Handle)


class Events(Generic[Event]):
    """Events of one channel. Use it in a with statement, which closes the channel.

        with ddal.phy.link_events(3) as events:
            for event in events.wait(5):
                print(event)

    One thread or task at a time may wait. In asyncio: "async for event in events:".
    """

    def __init__(self, channel: Channel, get: Callable[[Channel], Event], close: Callable[[Channel], None], priority: bool = False) -> None:
        self._get: Callable[[], Event] = lambda: get(channel)
        self._close: Callable[[], None] | None = lambda: close(channel)
        # The set is readable when the channel has an event, whichever way the channel announces it.
        self._set = select.epoll()
        try:
            self._set.register(channel, select.EPOLLPRI if priority else select.EPOLLIN)
        except BaseException:
            self.close()
            raise

    def fileno(self) -> int:
        """Returns a descriptor that is readable when an event waits: for select, poll and event loops."""
        return self._set.fileno()

    def wait(self, timeout: float | None = None) -> Iterator[Event]:
        """Yields events, and stops when none has come for timeout seconds. None: no limit."""
        while self._set.poll(timeout):
            yield self._get()

    def next(self, timeout: float | None = None) -> Event:
        """Returns the next event. TimeoutError: none has come in timeout seconds."""
        for event in self.wait(timeout):
            return event
        raise TimeoutError(f"no event in {timeout} s")

    async def __aiter__(self) -> AsyncIterator[Event]:
        import asyncio  # takes longer to import than everything else here

        loop = asyncio.get_running_loop()
        while True:
            ready = asyncio.Event()
            loop.add_reader(self.fileno(), ready.set)
            try:
                await ready.wait()
            finally:
                loop.remove_reader(self.fileno())
            yield self._get()

    def close(self) -> None:
        """Closes the channel. A second call does nothing."""
        close, self._close = self._close, None
        if close:
            self._set.close()
            close()

    def __enter__(self) -> Events[Event]:
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None) -> None:
        self.close()
