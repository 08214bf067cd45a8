-- Who is logged in over PPP. A row comes with a login and goes with the logout.
create table if not exists pppauth_user_table (
    type text not null,     -- kind of access
    username text not null, -- the peer's name
    ipaddr text not null,   -- the address given to the peer
    dial_mac text not null, -- where it calls from, empty when not known
    dial_ip text not null,  -- likewise
    uptime text not null    -- time of the login, YYYY-MM-DD HH:MM:SS, local
);
