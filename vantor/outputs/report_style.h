// How the report looks: paper and ink, one colour for what was measured, one for what is wrong.
#pragma once

inline constexpr char report_style[] = R"(
:root{color-scheme:light dark;--paper:#fbfaf6;--card:#fff;--ink:#1d1d1b;--soft:#66645c;--rule:#dcd8cc;
--blue:#1f5582;--band:#1f558233;--red:#b3261e;--green:#2c6a41;--amber:#8a5a00}
@media(prefers-color-scheme:dark){:root{--paper:#121417;--card:#191c20;--ink:#e6e3dc;--soft:#a09d94;
--rule:#33373d;--blue:#86b8e6;--band:#86b8e63d;--red:#ff8f80;--green:#8ccf9f;--amber:#e6b85c}}
*{box-sizing:border-box}
body{margin:0;background:var(--paper);color:var(--ink);font:15px/1.45 system-ui,sans-serif;
font-variant-numeric:tabular-nums}
main{max-width:1080px;margin:0 auto;padding:28px 20px 48px}
h1{font-size:24px;line-height:1.2;margin:2px 0 18px;overflow-wrap:anywhere}
h2{font-size:17px;margin:38px 0 10px;padding-top:10px;border-top:2px solid var(--ink)}
h3{font-size:15px;margin:24px 0 6px}
h3 small{font-weight:400;color:var(--soft);font-size:13px}
p{margin:6px 0;max-width:70ch}
.kicker,.note,footer{color:var(--soft);font-size:13px}
.kicker{margin:0;letter-spacing:.04em}
.verdict{border-left:6px solid var(--c);background:var(--card);padding:12px 16px}
.verdict strong{display:block;font-size:22px;line-height:1.25;color:var(--c)}
.good{--c:var(--green)}.bad{--c:var(--red)}.warn{--c:var(--amber)}.none{--c:var(--soft)}
.state{color:var(--c);font-weight:600}.state.none{font-weight:400}.state small{font-weight:400}
a{color:inherit}
dl{display:flex;flex-wrap:wrap;gap:10px 26px;margin:16px 0}
dl div{min-width:0}
dt{font-size:12px;color:var(--soft)}
dd{margin:0;overflow-wrap:anywhere}
.numbers{display:grid;grid-template-columns:repeat(8,minmax(0,76px));gap:2px 14px;margin:6px 0 8px}
.scroll{overflow-x:auto}.scroll:focus-visible{outline:2px solid var(--blue)}
table{border-collapse:collapse;width:100%}
th{font-size:12px;font-weight:400;color:var(--soft);text-align:left}
th,td{padding:4px 14px 4px 0;border-bottom:1px solid var(--rule);vertical-align:top}
.n{text-align:right;white-space:nowrap}
.n:first-child{width:1%}
td:first-child,.k{white-space:nowrap}
.list .w{width:45%}
.hit{color:var(--red);font-weight:600}
.zero{color:var(--soft)}
svg{display:block;width:100%;overflow:hidden}
code{font:13px/1.5 ui-monospace,monospace}
path{vector-effect:non-scaling-stroke;fill:none;stroke-width:1px}
.lane{display:grid;grid-template-columns:270px minmax(0,1fr);gap:0 12px;align-items:center}
.lane>div:first-child{display:flex;justify-content:space-between;gap:8px;white-space:nowrap}
.lane b{font-weight:600}
.strip{height:20px;background:var(--card);border-bottom:1px solid var(--rule);overflow:visible}
.strip path{fill:var(--c,var(--red));stroke:var(--c,var(--red));stroke-width:3px}
.rate{margin-bottom:6px}.rate>div:first-child{flex-direction:column;gap:0}.rate small{color:var(--soft)}
.spark{height:40px;background:var(--card);border-bottom:1px solid var(--rule)}
th[scope=row]{color:var(--ink);font-weight:600;font-size:inherit;white-space:nowrap}
.part{padding-top:14px;font-weight:600}
.pids{font-size:13px}.pids th,.pids td{padding-right:12px}.pids th{white-space:nowrap}
@media(min-width:1120px){.wide{--w:min(100vw - 60px,1400px);width:var(--w);margin-left:calc(50% - var(--w)/2)}}
.bar{min-width:80px}.bar i{display:block;height:9px;margin-top:5px;background:var(--blue)}
.plot{display:grid;grid-template-columns:minmax(0,4fr) minmax(0,1fr);gap:0 28px}
.curve{position:relative;padding-left:56px}
.curve svg{height:132px}
.y{position:absolute;left:0;top:0;width:48px;height:132px;font-size:11px;color:var(--soft)}
.y span{position:absolute;right:0;transform:translateY(50%);line-height:1}
.x{position:relative;height:18px;font-size:11px;color:var(--soft)}
.x span{position:absolute;top:4px;line-height:1;transform:translateX(-50%);white-space:nowrap}
.x span:first-child{transform:none}
.histo .x span:last-child{transform:translateX(-100%)}
.histo svg{height:132px;border-bottom:1px solid var(--soft)}
.grid{stroke:var(--rule)}
.band{fill:var(--band);stroke:var(--band)}
.avg{stroke:var(--blue);stroke-width:1.6px}
.limit{stroke:var(--red);stroke-dasharray:5 4}
.cut{stroke:var(--red);stroke-width:3px}
.bars{fill:var(--blue);stroke:none;opacity:.75}
footer{margin-top:44px;border-top:1px solid var(--rule);padding-top:10px}
@media(max-width:820px){.plot{grid-template-columns:minmax(0,1fr)}
.histo{padding-left:56px;margin-top:8px}.histo svg{height:72px}
.x span:nth-child(even){visibility:hidden}.histo .x span{visibility:visible}}
@media(max-width:640px){main{padding:18px 14px 36px}h1{font-size:20px}
.lane{grid-template-columns:minmax(0,1fr)}.lane>div:first-child{margin-top:8px}
.curve,.histo{padding-left:52px}.y{width:46px}
th,td{padding-right:10px}table{font-size:14px}
.numbers{grid-template-columns:repeat(4,minmax(0,1fr))}
.list tr:first-child{display:none}
.list tr{display:flex;flex-wrap:wrap;gap:0 12px;padding:6px 0;border-bottom:1px solid var(--rule)}
.list td{border:0;padding:0}.list td:empty{display:none}.list .n{width:auto}.list .w{flex-basis:100%;order:1}
.list .i:not(:empty)::before{content:"PID "}.list .g:not(:empty)::before{content:"program "}.list .p::before{content:"packet "}.list .b::before{content:"byte "}}
@media print{body{background:none;font-size:11px;print-color-adjust:exact}main{max-width:none;padding:8px 0}
h2,h3,.numbers,tr:first-child{break-after:avoid}.plot,.lane,tr{break-inside:avoid}.scroll{overflow:visible}
th,small,dt,code,.note,.kicker,footer{font-size:.9em}th,td{padding-right:8px}.pids{font-size:7.5px}.pids th,.pids td{padding-right:4px}
.bar{min-width:24px}.bar i{margin-top:1px}}
)";
