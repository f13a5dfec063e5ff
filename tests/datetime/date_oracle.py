"""What the interpreter's own calendar says: a line for the noon of each day from 1970 to 2038 and for random
times, in several zones. ZONE TIME OTHER DATE CLOCK WEEKDAY, where OTHER is another time with the same fields."""

import datetime
import random
import sys
import zoneinfo

ZONES = ["UTC", "Asia/Kolkata", "Australia/Sydney", "America/New_York", "Europe/Moscow", "Pacific/Apia"]
DAY = 86400
END = int(datetime.datetime(2039, 1, 1, tzinfo=datetime.timezone.utc).timestamp())
wild = random.Random(20261123)

for name in ZONES:
    zone = zoneinfo.ZoneInfo(name)
    for time in [*range(DAY // 2, END, DAY), *(wild.randrange(1, END) for _ in range(5000))]:
        local = datetime.datetime.fromtimestamp(time, zone)
        other = int(local.replace(fold=1 - local.fold).timestamp())
        same = datetime.datetime.fromtimestamp(other, zone).replace(tzinfo=None) == local.replace(tzinfo=None)
        sys.stdout.write(f"{name} {time} {other if same else time} {local:%Y-%m-%d %H:%M:%S %w}\n")
