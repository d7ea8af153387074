#!/usr/bin/env python3
"""Writes the index of an iPhone backup shaped like a real phone's, for the benchmarks.

Written with Python's own sqlite3 and plistlib, independently of Nuvrel's code: the files table of
Manifest.db with its indexes, one keyed archive (MBFile) per row, folders and links among the files
as the phone lists them, and Info.plist, Manifest.plist and Status.plist beside it. Only the index is
written; the stored copies are not.

Shape (default 300,000 files): a camera roll of 30,000 photos and videos with their sidecars and the
photo library's own files, app containers holding 100,000 small cache files, Messages attachments,
hundreds of app, plugin, group and system domains, deep paths, and names in French, Serbian and
Russian with emoji.

    phone_backup.py FOLDER [--files N] [--seed S]
"""

import argparse
import datetime
import hashlib
import os
import plistlib
import random
import sqlite3
import uuid

FRENCH = ["Factures", "Écoles", "Reçu d'été", "Vacances à Sète", "Crèche", "Impôts", "Déménagement", "Noël"]
SERBIAN = ["Рачуни", "Путовање у Нови Сад", "Školska slika", "Ђурђевдан", "Žurka kod Ćire"]
RUSSIAN = ["Документы", "Отчёт за квартал", "Фотографии с дачи", "Ёлка", "Счёт №"]
EMOJI = ["🎉", "📸", "🏖️", "👨‍👩‍👧", "🇫🇷", "🙂"]

APPS = [
    "net.whatsapp.WhatsApp", "ph.telegra.Telegraph", "com.burbn.instagram", "com.facebook.Facebook",
    "com.google.chrome.ios", "com.spotify.client", "com.netflix.Netflix", "fr.leboncoin.Leboncoin",
    "com.sncf.iv", "fr.laposte.idn", "com.yourcompany.PPClient", "com.toyopagroup.picaboo",
    "com.zhiliaoapp.musically", "com.google.Maps", "com.ubercab.UberClient", "com.deezer.Deezer",
    "ru.yandex.mobile.navigator", "rs.mts.moj", "com.vk.vkclient", "org.telegram.messenger",
]


class Writer:
    def __init__(self, folder, rng):
        self.rng = rng
        self.folder = folder
        self.db = sqlite3.connect(os.path.join(folder, "Manifest.db"))
        self.db.executescript(
            "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
            "CREATE TABLE Files (fileID TEXT PRIMARY KEY, domain TEXT, relativePath TEXT, flags INTEGER, file BLOB);"
            "CREATE INDEX FilesDomainIdx ON Files(domain);"
            "CREATE INDEX FilesRelativePathIdx ON Files(relativePath);"
            "CREATE INDEX FilesFlagsIdx ON Files(flags);"
            "CREATE TABLE Properties (key TEXT PRIMARY KEY, value BLOB);")
        self.rows = []
        self.files = 0
        self.seen = set()
        self.folders = set()
        self.inode = 10_000_000
        self.now = 1_763_000_000

    def record(self, path, size, mode, mtime, protection):
        self.inode += 1
        file = {
            "$class": plistlib.UID(3),
            "Birth": mtime - self.rng.randrange(0, 86400 * 30),
            "Flags": 0,
            "GroupID": 501,
            "InodeNumber": self.inode,
            "LastModified": mtime,
            "LastStatusChange": mtime,
            "Mode": mode,
            "ProtectionClass": protection,
            "RelativePath": plistlib.UID(2),
            "Size": size,
            "UserID": 501,
        }
        archive = {
            "$archiver": "NSKeyedArchiver",
            "$objects": ["$null", file, path, {"$classes": ["MBFile", "NSObject"], "$classname": "MBFile"}],
            "$top": {"root": plistlib.UID(1)},
            "$version": 100000,
        }
        return plistlib.dumps(archive, fmt=plistlib.FMT_BINARY, sort_keys=False)

    def add_row(self, domain, path, flags, size, mode, mtime, protection):
        key = (domain, path)
        if key in self.seen:
            return False
        self.seen.add(key)
        file_id = hashlib.sha1(f"{domain}-{path}".encode()).hexdigest()
        self.rows.append((file_id, domain, path, flags, self.record(path, size, mode, mtime, protection)))
        if len(self.rows) >= 20_000:
            self.flush()
        return True

    def add(self, domain, path, size=None, mtime=None, protection=None):
        """A regular file, with every folder above it listed once, as the phone does."""
        parts = path.split("/")
        for depth in range(1, len(parts)):
            folder = (domain, "/".join(parts[:depth]))
            if folder not in self.folders:
                self.folders.add(folder)
                self.add_row(domain, folder[1], 2, 0, 0o40755, self.now - 86400 * 400, 0)
        if size is None:
            size = int(self.rng.lognormvariate(8.5, 2.0))
        if mtime is None:
            mtime = self.now - self.rng.randrange(0, 86400 * 365 * 4)
        if protection is None:
            protection = self.rng.choice([3, 3, 3, 4, 2])
        if self.add_row(domain, path, 1, size, 0o100644, mtime, protection):
            self.files += 1

    def link(self, domain, path):
        self.add_row(domain, path, 4, 0, 0o120755, self.now - 86400 * 400, 0)

    def flush(self):
        self.db.executemany("INSERT INTO Files VALUES (?, ?, ?, ?, ?)", self.rows)
        self.rows = []

    def close(self):
        self.flush()
        self.db.commit()
        self.db.close()


def word(rng):
    pool = rng.choice([FRENCH, SERBIAN, RUSSIAN, ["Documents", "Backup", "tmp", "Export"]])
    name = rng.choice(pool)
    if rng.random() < 0.05:
        name += " " + rng.choice(EMOJI)
    return name


def camera_roll(w, rng, count):
    """IMG_0001… in 100APPLE, 101APPLE…, a thousand per folder, with the library's own files beside."""
    made = 0
    number = 1
    while made < count:
        folder = f"Media/DCIM/{100 + (number - 1) // 1000}APPLE"
        kind = rng.random()
        if kind < 0.62:
            ext, size = "HEIC", int(rng.gauss(2_400_000, 600_000))
        elif kind < 0.72:
            ext, size = "JPG", int(rng.gauss(3_100_000, 900_000))
        elif kind < 0.78:
            ext, size = "PNG", int(rng.gauss(900_000, 300_000))
        else:
            ext, size = "MOV", int(rng.lognormvariate(17.0, 1.2))
        mtime = w.now - rng.randrange(0, 86400 * 365 * 6)
        w.add("CameraRollDomain", f"{folder}/IMG_{number:04d}.{ext}", max(size, 1000), mtime)
        made += 1
        if ext == "HEIC" and rng.random() < 0.1 and made < count:
            w.add("CameraRollDomain", f"{folder}/IMG_{number:04d}.MOV", int(rng.gauss(3_000_000, 500_000)), mtime)
            made += 1
        if rng.random() < 0.08 and made < count:
            w.add("CameraRollDomain", f"{folder}/IMG_{number:04d}.AAE", 1200, mtime)
            made += 1
        number += 1
    return made


def photo_data(w, rng, count):
    for i in range(count):
        sub = rng.choice(["Thumbnails/V2/DCIM", "Metadata/DCIM", "Mutations/DCIM"])
        if sub.startswith("Thumbnails"):
            path = f"Media/PhotoData/{sub}/{100 + i // 1000}APPLE/IMG_{i:04d}.JPG/5005.JPG"
        else:
            path = f"Media/PhotoData/{sub}/{100 + i // 1000}APPLE/IMG_{i:04d}.{rng.choice(['plist', 'AAE'])}"
        w.add("CameraRollDomain", path)
    w.add("CameraRollDomain", "Media/PhotoData/Photos.sqlite", 180_000_000)
    w.add("CameraRollDomain", "Media/PhotoData/Photos.sqlite-wal", 4_000_000)


def app_caches(w, rng, count):
    """Small cache files, deep below the containers of a few heavy apps."""
    heavy = APPS[:12]
    for i in range(count):
        app = heavy[min(int(rng.expovariate(0.35)), len(heavy) - 1)]
        layout = rng.random()
        digest = hashlib.md5(f"{app}{i}".encode()).hexdigest()
        if layout < 0.4:
            path = f"Library/Caches/com.hackemist.SDImageCache/default/{digest}.png"
        elif layout < 0.7:
            path = f"Library/Caches/{app}/fsCachedData/{str(uuid.UUID(int=rng.getrandbits(128))).upper()}"
        elif layout < 0.85:
            path = f"Library/Application Support/{app}/Media/{digest[:1]}/{digest}.thumb"
        else:
            path = f"Documents/{word(rng)}/{word(rng)}/{digest[:8]}.json"
        w.add(f"AppDomain-{app}", path, int(rng.lognormvariate(7.5, 1.5)))


def messages_attachments(w, rng, count):
    for i in range(count):
        digest = hashlib.sha1(str(i).encode()).hexdigest()
        name = rng.choice(["IMG_%04d.HEIC" % rng.randrange(10000), "IMG_%04d.jpeg" % rng.randrange(10000),
                           f"{word(rng)}.pdf", "Audio Message.caf", f"{word(rng)}.mov"])
        guid = str(uuid.UUID(int=rng.getrandbits(128))).upper()
        w.add("MediaDomain", f"Library/SMS/Attachments/{digest[:2]}/{digest[2:4]}/{guid}/{name}")


def home(w, rng, count):
    w.add("HomeDomain", "Library/SMS/sms.db", 350_000_000)
    w.add("HomeDomain", "Library/SMS/sms.db-wal", 12_000_000)
    w.add("HomeDomain", "Library/SMS/sms.db-shm", 32_768)
    w.add("HomeDomain", "Library/AddressBook/AddressBook.sqlitedb", 6_000_000)
    w.add("HomeDomain", "Library/Notes/notes.sqlite", 2_000_000)
    w.add("HomeDomain", "Library/CallHistoryDB/CallHistory.storedata", 1_500_000)
    w.link("HomeDomain", "Library/Ringtones")
    for i in range(count):
        layout = rng.random()
        if layout < 0.3:
            path = f"Library/Preferences/com.apple.{rng.choice(['springboard', 'Preferences', 'mobilesafari', 'weather', 'stocks'])}.{i}.plist"
        elif layout < 0.6:
            path = f"Library/Caches/com.apple.{rng.choice(['mobilesafari', 'Maps', 'news'])}/{hashlib.md5(str(i).encode()).hexdigest()}"
        else:
            path = f"Library/Mobile Documents/{word(rng)}/{word(rng)}/{word(rng)} {i}.{rng.choice(['pdf', 'pages', 'txt', 'docx'])}"
        w.add("HomeDomain", path)


def whatsapp(w, rng, count):
    group = "AppDomainGroup-group.net.whatsapp.WhatsApp.shared"
    w.add(group, "ChatStorage.sqlite", 220_000_000)
    w.add(group, "ChatStorage.sqlite-wal", 8_000_000)
    w.add(group, "ChatStorage.sqlite-shm", 32_768)
    contacts = [f"3367{rng.randrange(10_000_000):07d}@s.whatsapp.net" for _ in range(150)]
    for i in range(count):
        jid = rng.choice(contacts)
        guid = str(uuid.UUID(int=rng.getrandbits(128))).upper()
        w.add(group, f"Message/Media/{jid}/{guid[0]}/{guid[1]}/{guid}.{rng.choice(['jpg', 'mp4', 'opus', 'pdf'])}")


def many_domains(w, rng, count):
    """Hundreds of small domains: plugins, groups, system containers, the rest of the apps."""
    domains = []
    for i in range(220):
        domains.append(f"AppDomainPlugin-com.example.app{i}.{rng.choice(['share', 'widget', 'notification', 'intents'])}")
    for i in range(110):
        domains.append(f"AppDomainGroup-group.com.example.shared{i}")
    for i in range(260):
        domains.append(f"SysContainerDomain-com.apple.{rng.choice(['siri', 'news', 'Health', 'weather', 'tips'])}.{i}")
    for i in range(60):
        domains.append(f"SysSharedContainerDomain-systemgroup.com.apple.{i}")
    for i in range(300):
        domains.append(f"AppDomain-com.vendor{i}.app")
    domains += [f"AppDomain-{app}" for app in APPS[12:]]
    domains += ["KeychainDomain", "HealthDomain", "HomeKitDomain", "ManagedPreferencesDomain", "RootDomain",
                "SystemPreferencesDomain", "WirelessDomain", "DatabaseDomain", "MobileDeviceDomain",
                "KeyboardDomain", "InstallDomain", "BooksDomain", "TonesDomain"]
    for domain in domains:
        w.add(domain, "Library/Preferences/" + domain.split("-", 1)[-1] + ".plist", 2_000)
    for i in range(count - len(domains)):
        domain = domains[min(int(rng.expovariate(0.02)), len(domains) - 1)]
        depth = rng.randrange(1, 6)
        parts = [rng.choice(["Library", "Documents", "tmp", "SystemData"])]
        parts += [word(rng) if rng.random() < 0.1 else f"d{rng.randrange(4)}" for _ in range(depth)]
        parts.append(f"f{i}.{rng.choice(['db', 'plist', 'json', 'dat', 'png', 'txt'])}")
        w.add(domain, "/".join(parts))


def write_plists(folder, files):
    now = datetime.datetime(2026, 11, 20, 19, 42)  # plistlib reads naive dates as UTC
    info = {
        "Build Version": "22B91", "Device Name": "iPhone de Camille", "Display Name": "iPhone de Camille",
        "GUID": "7A1B2C3D4E5F60718293A4B5C6D7E8F9", "ICCID": "89330000000000000000",
        "IMEI": "350000000000000", "Last Backup Date": now, "Product Name": "iPhone 15 Pro",
        "Product Type": "iPhone16,1", "Product Version": "18.1.1", "Serial Number": "F00000000000",
        "Target Identifier": os.path.basename(folder), "Target Type": "Device",
        "Unique Identifier": os.path.basename(folder), "iTunes Version": "12.13.2.3",
    }
    with open(os.path.join(folder, "Info.plist"), "wb") as f:
        plistlib.dump(info, f)
    manifest = {
        "BackupKeyBag": b"", "Version": "10.0", "Date": now, "SystemDomainsVersion": "24.0",
        "WasPasscodeSet": True, "IsEncrypted": False,
        "Lockdown": {"DeviceName": "iPhone de Camille", "ProductType": "iPhone16,1", "ProductVersion": "18.1.1"},
        "Applications": {},
    }
    del manifest["BackupKeyBag"]
    with open(os.path.join(folder, "Manifest.plist"), "wb") as f:
        plistlib.dump(manifest, f, fmt=plistlib.FMT_BINARY)
    status = {"BackupState": "new", "Date": now, "IsFullBackup": False, "SnapshotState": "finished",
              "UUID": "A1B2C3D4-0000-4000-8000-000000000001", "Version": "3.3"}
    with open(os.path.join(folder, "Status.plist"), "wb") as f:
        plistlib.dump(status, f, fmt=plistlib.FMT_BINARY)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder")
    parser.add_argument("--files", type=int, default=300_000)
    parser.add_argument("--seed", type=int, default=2026)
    args = parser.parse_args()
    rng = random.Random(args.seed)
    os.makedirs(args.folder, exist_ok=True)
    for name in ("Manifest.db", "Manifest.db.part"):
        if os.path.exists(os.path.join(args.folder, name)):
            os.remove(os.path.join(args.folder, name))
    w = Writer(args.folder, rng)
    total = args.files
    camera = camera_roll(w, rng, total // 10)
    photo_data(w, rng, total // 20)
    app_caches(w, rng, total // 3)
    messages_attachments(w, rng, total // 15)
    whatsapp(w, rng, total // 30)
    home(w, rng, total // 30)
    many_domains(w, rng, total - w.files)
    w.close()
    write_plists(args.folder, w.files)
    print(f"{w.files} files ({camera} in the camera roll), {len(w.folders)} folders in {args.folder}")


if __name__ == "__main__":
    main()
