#!/usr/bin/env python3
"""Writes conversations shaped like real ones, for the benchmarks, independently of Nuvrel's code.

    chats.py whatsapp-export FILE [--messages N] [--ascii] [--seed S]
        A WhatsApp "Export Chat" text file as the iPhone writes it: three people writing French,
        Serbian (Cyrillic and Latin) and Russian, with emoji (flags, families, skin tones), multi-line
        messages, attachments and system lines. --ascii writes the same conversation in plain ASCII,
        the reference for what the scripts and emoji cost.

    chats.py messages-db FILE [--messages N] [--chats C] [--seed S]
        A Messages chat.db with the columns and indexes of a current one: most texts only in
        attributedBody (a typedstream blob), reactions, attachments, group and one-to-one chats with
        a few very long ones.
"""

import argparse
import datetime
import os
import random
import sqlite3
import unicodedata

PEOPLE = ["Camille Durand", "Милош Петровић", "Ольга Смирнова"]

FRENCH = [
    "Salut ! Tu es où ?", "On se retrouve au café près de la gare à 18 h ?", "Je suis en retard, désolée 😅",
    "Ça marche, à tout à l'heure.", "Tu as vu le match hier soir ? Incroyable la fin !",
    "N'oublie pas le pain et le fromage pour ce soir 🧀🥖", "Bon anniversaire ma belle 🎂🎉🎈",
    "Les enfants sont à l'école, je passe te prendre vers 16 h 30.", "Merci beaucoup, c'est très gentil ❤️",
    "Je t'envoie l'adresse : 12 rue de la République, 69002 Lyon.",
    "Il pleut des cordes ici ☔️ et chez vous ?", "D'accord 👍🏽", "Hâte de vous voir cet été à Sète 🏖️",
    "Est-ce que quelqu'un a le numéro du plombier ? La fuite sous l'évier recommence.",
]
SERBIAN = [
    "Здраво! Како си?", "Видимо се сутра у Новом Саду 🇷🇸", "Ćao, stižem za deset minuta 🚗",
    "Хвала ти пуно, баш си добар 🙏🏻", "Da li neko zna kada počinje koncert?", "Срећан рођендан! 🎂🥳",
    "Ђурђевдан је следеће недеље, долазите ли код нас?", "Žurka kod Ćire u subotu, javite se 😄",
    "Послао сам ти фотографије са пута.", "Nema problema, čujemo se kasnije.",
]
RUSSIAN = [
    "Привет! Как дела?", "Я уже еду, буду через полчаса 🚕", "Спасибо большое, очень приятно 😊",
    "С днём рождения! Желаю счастья и здоровья 🎉💐", "Кто-нибудь знает, во сколько начинается собрание?",
    "Смотри, какой закат сегодня 🌅", "Ёлку поставим в субботу, приходите все 🎄",
    "Не забудь взять документы для банка.", "Ладно, договорились 👌", "Погода отличная, идём гулять в парк 🌳",
]
EXTRA_LINES = [
    "Et aussi : pense à réserver la table.", "Такође: donesi punjač 🔌", "И ещё: купи молоко 🥛",
    "👨‍👩‍👧‍👦 toute la famille sera là", "P.S. 😂😂😂", "— Ольга",
]
ATTACHMENTS = ["PHOTO", "VIDEO", "AUDIO", "DOCUMENT", "STICKER"]


CYRILLIC = dict(zip("абвгдђежзијклљмнњопрстћуфхцчџшщъыьэюяё",
                    ["a", "b", "v", "g", "d", "dj", "e", "zh", "z", "i", "j", "k", "l", "lj", "m", "n", "nj", "o",
                     "p", "r", "s", "t", "c", "u", "f", "h", "c", "ch", "dz", "sh", "shch", "", "y", "", "e", "yu",
                     "ya", "yo"]))


def ascii_only(text):
    """The same text in ASCII and of about the same length: accents dropped, Cyrillic transliterated,
    each emoji a word."""
    out = []
    for c in text:
        lower = c.lower()
        if lower in CYRILLIC:
            latin = CYRILLIC[lower]
            out.append(latin.capitalize() if c != lower else latin)
        elif ord(c) < 128:
            out.append(c)
        elif unicodedata.category(c) in ("So", "Sk"):
            out.append(":emoji:")
        else:
            out.append(unicodedata.normalize("NFKD", c).encode("ascii", "ignore").decode())
    return "".join(out)


def whatsapp_export(path, count, ascii, rng):
    pools = [FRENCH, SERBIAN, RUSSIAN]
    people = PEOPLE if not ascii else ["Camille Durand", "Milos Petrovic", "Olga Smirnova"]
    day, hour, minute, second = 0, 8, 0, 0
    lines = []
    if not ascii:
        lines.append("\u200e[03/01/2022, 08:00:00] " + people[0] + ": \u200eLes messages et les appels sont "
                     "chiffrés de bout en bout.")
    for i in range(count):
        second += rng.randrange(5, 400)
        minute += second // 60
        second %= 60
        hour += minute // 60
        minute %= 60
        if hour >= 23:
            day += 1 + rng.randrange(2)
            hour, minute = 7 + rng.randrange(3), rng.randrange(60)
        d = datetime.date(2022, 1, 3) + datetime.timedelta(days=day)
        stamp = f"[{d.day:02d}/{d.month:02d}/{d.year}, {hour:02d}:{minute:02d}:{second:02d}]"
        who = rng.randrange(3)
        kind = rng.random()
        if kind < 0.06:
            number = i + 1
            tag = rng.choice(ATTACHMENTS)
            ext = {"PHOTO": "jpg", "VIDEO": "mp4", "AUDIO": "opus", "DOCUMENT": "pdf", "STICKER": "webp"}[tag]
            name = f"{number:08d}-{tag}-{d.year}-{d.month:02d}-{d.day:02d}-{hour:02d}-{minute:02d}-{second:02d}.{ext}"
            body = ("\u200e" if not ascii else "") + f"<attached: {name}>"
        else:
            body = rng.choice(pools[who])
            if rng.random() < 0.3:
                body += " " + rng.choice(pools[who])
            if rng.random() < 0.12:
                body += "\n" + rng.choice(EXTRA_LINES)
                if rng.random() < 0.3:
                    body += "\n" + rng.choice(pools[(who + 1) % 3])
            if ascii:
                body = "\n".join(ascii_only(part) for part in body.split("\n"))
        lines.append(f"{stamp} {people[who]}: {body}")
    with open(path + ".part", "w", encoding="utf-8", newline="\r\n") as f:
        f.write("\n".join(lines) + "\n")
    os.replace(path + ".part", path)


def attributed_body(text):
    """An NSAttributedString as typedstream bytes, the way Messages stores a text."""
    data = text.encode("utf-8")
    if len(data) < 0x80:
        length = bytes([len(data)])
    elif len(data) < 0x10000:
        length = b"\x81" + len(data).to_bytes(2, "little")
    else:
        length = b"\x82" + len(data).to_bytes(4, "little")
    return (b"\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84\x12NSAttributedString\x00\x84\x84\x08NSObject"
            b"\x00\x85\x92\x84\x84\x84\x08NSString\x01\x94\x84\x01+" + length + data +
            b"\x86\x84\x02iI\x01" + bytes([min(len(text), 127)]) +
            b"\x92\x84\x84\x84\x0cNSDictionary\x00\x94\x84\x01i\x01\x92\x84\x96\x96\x1d__kIMMessagePartAttributeName"
            b"\x86\x92\x84\x84\x84\x08NSNumber\x00\x84\x84\x07NSValue\x00\x94\x84\x01*\x84\x99\x99\x00\x86\x86\x86")


MESSAGE_COLUMNS = """
    ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, text TEXT, replace INTEGER DEFAULT 0,
    service_center TEXT, handle_id INTEGER DEFAULT 0, subject TEXT, country TEXT, attributedBody BLOB,
    version INTEGER DEFAULT 0, type INTEGER DEFAULT 0, service TEXT, account TEXT, account_guid TEXT,
    error INTEGER DEFAULT 0, date INTEGER, date_read INTEGER, date_delivered INTEGER,
    is_delivered INTEGER DEFAULT 0, is_finished INTEGER DEFAULT 0, is_emote INTEGER DEFAULT 0,
    is_from_me INTEGER DEFAULT 0, is_empty INTEGER DEFAULT 0, is_delayed INTEGER DEFAULT 0,
    is_auto_reply INTEGER DEFAULT 0, is_prepared INTEGER DEFAULT 0, is_read INTEGER DEFAULT 0,
    is_system_message INTEGER DEFAULT 0, is_sent INTEGER DEFAULT 0, has_dd_results INTEGER DEFAULT 0,
    is_service_message INTEGER DEFAULT 0, is_forward INTEGER DEFAULT 0, was_downgraded INTEGER DEFAULT 0,
    is_archive INTEGER DEFAULT 0, cache_has_attachments INTEGER DEFAULT 0, cache_roomnames TEXT,
    was_data_detected INTEGER DEFAULT 0, was_deduplicated INTEGER DEFAULT 0, is_audio_message INTEGER DEFAULT 0,
    is_played INTEGER DEFAULT 0, date_played INTEGER, item_type INTEGER DEFAULT 0, other_handle INTEGER DEFAULT 0,
    group_title TEXT, group_action_type INTEGER DEFAULT 0, share_status INTEGER DEFAULT 0,
    share_direction INTEGER DEFAULT 0, is_expirable INTEGER DEFAULT 0, expire_state INTEGER DEFAULT 0,
    message_action_type INTEGER DEFAULT 0, message_source INTEGER DEFAULT 0,
    associated_message_guid TEXT, associated_message_type INTEGER DEFAULT 0, balloon_bundle_id TEXT,
    payload_data BLOB, expressive_send_style_id TEXT, associated_message_range_location INTEGER DEFAULT 0,
    associated_message_range_length INTEGER DEFAULT 0, time_expressive_send_played INTEGER,
    message_summary_info BLOB, ck_sync_state INTEGER DEFAULT 0, ck_record_id TEXT, ck_record_change_tag TEXT,
    destination_caller_id TEXT, is_corrupt INTEGER DEFAULT 0, reply_to_guid TEXT, sort_id INTEGER,
    is_spam INTEGER DEFAULT 0, has_unseen_mention INTEGER DEFAULT 0, thread_originator_guid TEXT,
    thread_originator_part TEXT, syndication_ranges TEXT, synced_syndication_ranges TEXT,
    was_delivered_quietly INTEGER DEFAULT 0, did_notify_recipient INTEGER DEFAULT 0,
    date_retracted INTEGER, date_edited INTEGER, was_detonated INTEGER DEFAULT 0,
    part_count INTEGER, is_stewie INTEGER DEFAULT 0, is_kt_verified INTEGER DEFAULT 0,
    is_sos INTEGER DEFAULT 0, is_critical INTEGER DEFAULT 0, bia_reference_id TEXT DEFAULT NULL,
    fallback_hash TEXT DEFAULT NULL
"""


def messages_db(path, count, chats, rng):
    if os.path.exists(path + ".part"):
        os.remove(path + ".part")
    db = sqlite3.connect(path + ".part")
    db.executescript(f"""
        PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA page_size=4096;
        CREATE TABLE handle (ROWID INTEGER PRIMARY KEY AUTOINCREMENT UNIQUE, id TEXT NOT NULL, country TEXT,
            service TEXT NOT NULL, uncanonicalized_id TEXT, person_centric_id TEXT, UNIQUE (id, service));
        CREATE TABLE chat (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, style INTEGER,
            state INTEGER, account_id TEXT, properties BLOB, chat_identifier TEXT, service_name TEXT,
            room_name TEXT, account_login TEXT, is_archived INTEGER DEFAULT 0, last_addressed_handle TEXT,
            display_name TEXT, group_id TEXT, is_filtered INTEGER DEFAULT 0, successful_query INTEGER,
            engram_id TEXT, server_change_token TEXT, ck_sync_state INTEGER DEFAULT 0,
            original_group_id TEXT, last_read_message_timestamp INTEGER DEFAULT 0,
            cloudkit_record_id TEXT, last_addressed_sim_id TEXT, is_blackholed INTEGER DEFAULT 0,
            syndication_date INTEGER DEFAULT 0, syndication_type INTEGER DEFAULT 0, is_recovered INTEGER DEFAULT 0,
            is_deleting_incoming_messages INTEGER DEFAULT 0);
        CREATE TABLE message ({MESSAGE_COLUMNS});
        CREATE TABLE chat_message_join (chat_id INTEGER REFERENCES chat (ROWID) ON DELETE CASCADE,
            message_id INTEGER REFERENCES message (ROWID) ON DELETE CASCADE, message_date INTEGER DEFAULT 0,
            PRIMARY KEY (chat_id, message_id));
        CREATE TABLE chat_handle_join (chat_id INTEGER REFERENCES chat (ROWID) ON DELETE CASCADE,
            handle_id INTEGER REFERENCES handle (ROWID) ON DELETE CASCADE, UNIQUE(chat_id, handle_id));
        CREATE TABLE attachment (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL,
            created_date INTEGER DEFAULT 0, start_date INTEGER DEFAULT 0, filename TEXT, uti TEXT,
            mime_type TEXT, transfer_state INTEGER DEFAULT 0, is_outgoing INTEGER DEFAULT 0, user_info BLOB,
            transfer_name TEXT, total_bytes INTEGER DEFAULT 0, is_sticker INTEGER DEFAULT 0,
            sticker_user_info BLOB, attribution_info BLOB, hide_attachment INTEGER DEFAULT 0,
            ck_sync_state INTEGER DEFAULT 0, ck_server_change_token_blob BLOB, ck_record_id TEXT,
            original_guid TEXT UNIQUE NOT NULL, sr_ck_sync_state INTEGER DEFAULT 0,
            sr_ck_server_change_token_blob BLOB, sr_ck_record_id TEXT, is_commsafety_sensitive INTEGER DEFAULT 0);
        CREATE TABLE message_attachment_join (message_id INTEGER REFERENCES message (ROWID) ON DELETE CASCADE,
            attachment_id INTEGER REFERENCES attachment (ROWID) ON DELETE CASCADE, UNIQUE(message_id, attachment_id));
    """)
    people = FRENCH + SERBIAN + RUSSIAN
    handles = []
    for h in range(1, chats + 1):
        number = f"+33{6 + h % 2}{rng.randrange(10**8):08d}" if h % 3 else f"+3816{rng.randrange(10**8):08d}"
        handles.append(number)
        db.execute("INSERT INTO handle (ROWID, id, country, service, uncanonicalized_id) VALUES (?, ?, 'fr', ?, ?)",
                   (h, number, "iMessage" if h % 4 else "SMS", number))
        group = h % 25 == 0
        db.execute("INSERT INTO chat (ROWID, guid, style, state, chat_identifier, service_name, display_name) "
                   "VALUES (?, ?, ?, 3, ?, 'iMessage', ?)",
                   (h, f"iMessage;{'+' if group else '-'};{number}", 43 if group else 45,
                    f"chat{rng.getrandbits(60)}" if group else number,
                    rng.choice(["Famille 👨‍👩‍👧", "Друзья", "Ekipa 🎉", "Voisins"]) if group else ""))
        db.execute("INSERT INTO chat_handle_join VALUES (?, ?)", (h, h))
    # A few conversations hold most messages, as on a real phone.
    weights = [1.0 / (rank + 1) ** 1.1 for rank in range(chats)]
    date = 600_000_000 * 10**9
    attachment = 0
    batch_messages, batch_joins, batch_attachments, batch_links = [], [], [], []
    for rowid in range(1, count + 1):
        chat = rng.choices(range(1, chats + 1), weights)[0] if rowid % 16 else rng.randrange(1, chats + 1)
        date += rng.randrange(1, 600) * 10**9
        text = rng.choice(people)
        if rng.random() < 0.2:
            text += "\n" + rng.choice(EXTRA_LINES)
        reaction = 2000 + rng.randrange(6) if rng.random() < 0.04 else 0
        has_attachment = rng.random() < 0.05
        from_me = rng.random() < 0.45
        body = attributed_body(("\ufffc" if has_attachment else "") + text)
        batch_messages.append((rowid, f"{rng.getrandbits(128):032X}", None if rng.random() < 0.7 else text,
                               0 if from_me else chat, body, "iMessage", date, date + 10**9 if not from_me else 0,
                               date, int(from_me), int(has_attachment), reaction, rowid))
        batch_joins.append((chat, rowid, date))
        if has_attachment:
            attachment += 1
            name = f"IMG_{rng.randrange(10000):04d}.HEIC"
            batch_attachments.append((attachment, f"at_{attachment}", f"~/Library/SMS/Attachments/{attachment % 256:02x}/"
                                      f"{attachment % 100:02d}/{name}", "public.heic", "image/heic", name,
                                      rng.randrange(500_000, 4_000_000), f"at_{attachment}"))
            batch_links.append((rowid, attachment))
        if len(batch_messages) >= 20_000 or rowid == count:
            db.executemany("INSERT INTO message (ROWID, guid, text, handle_id, attributedBody, service, date, "
                           "date_read, date_delivered, is_from_me, cache_has_attachments, associated_message_type, "
                           "sort_id) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", batch_messages)
            db.executemany("INSERT INTO chat_message_join VALUES (?, ?, ?)", batch_joins)
            db.executemany("INSERT INTO attachment (ROWID, guid, filename, uti, mime_type, transfer_name, "
                           "total_bytes, original_guid) VALUES (?, ?, ?, ?, ?, ?, ?, ?)", batch_attachments)
            db.executemany("INSERT INTO message_attachment_join VALUES (?, ?)", batch_links)
            batch_messages, batch_joins, batch_attachments, batch_links = [], [], [], []
    # The indexes of a current database that touch these tables.
    db.executescript("""
        CREATE INDEX chat_message_join_idx_message_id_only ON chat_message_join(message_id);
        CREATE INDEX chat_message_join_idx_chat_id ON chat_message_join(chat_id);
        CREATE INDEX chat_message_join_idx_message_date_id_chat_id ON chat_message_join(chat_id, message_date, message_id);
        CREATE INDEX message_idx_handle ON message(handle_id, date);
        CREATE INDEX message_idx_date ON message(date);
        CREATE INDEX message_idx_associated_message ON message(associated_message_guid);
        CREATE INDEX message_attachment_join_idx_message_id ON message_attachment_join(message_id);
    """)
    db.commit()
    db.close()
    os.replace(path + ".part", path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sub = parser.add_subparsers(dest="what", required=True)
    export = sub.add_parser("whatsapp-export")
    export.add_argument("file")
    export.add_argument("--messages", type=int, default=50_000)
    export.add_argument("--ascii", action="store_true")
    export.add_argument("--seed", type=int, default=7)
    database = sub.add_parser("messages-db")
    database.add_argument("file")
    database.add_argument("--messages", type=int, default=1_000_000)
    database.add_argument("--chats", type=int, default=2_000)
    database.add_argument("--seed", type=int, default=7)
    args = parser.parse_args()
    rng = random.Random(args.seed)
    if args.what == "whatsapp-export":
        whatsapp_export(args.file, args.messages, args.ascii, rng)
    else:
        messages_db(args.file, args.messages, args.chats, rng)


if __name__ == "__main__":
    main()
